// Findings of a configuration check: problems with their JSON paths, and the translation of
// the daemon's own parser messages into the configuration key they are about.
//
// Paths read like "Estimators.ASW.Battery[0].Name"; a key that is not a plain identifier is
// quoted in brackets ("Estimators.BASP[\"2.0\"][1].Cycles"). Not thread-safe: one check runs
// on one thread.
#pragma once

#include <json/json.h>

#include <string>
#include <vector>

struct ConfigProblem {
    std::string path;      // JSON path of the offending value ("" for the whole document)
    std::string expected;  // what the daemon accepts there
    std::string found;     // what the file holds there ("nothing" when the key is absent)
    std::string detail;    // the daemon's own log lines, "; "-joined (may be empty)
};

namespace CheckPath {
std::string Key(const std::string& base, const std::string& key);
std::string Index(const std::string& base, unsigned index);
}  // namespace CheckPath

// A short description of a value for "found": its type and, when short, its text.
std::string DescribeValue(const Json::Value* value);

// How one parser message maps to a key below the value being parsed. `pattern` is a regular
// expression matched against the whole message; `key` is a relative path appended to the base
// ("" keeps the base), where "$1" stands for the pattern's first group; a null `key` marks a
// message about an optional value the parser defaulted, which is never a problem.
struct MessageRule {
    const char* pattern;
    const char* key;
    const char* expected;
};

class Findings {
public:
    void Add(std::string path, std::string expected, const Json::Value* found,
             std::string detail = "");
    // As Add, with what was found given as text.
    void AddFound(std::string path, std::string expected, std::string found);
    // Records the outcome of one parser run over the value at `base` (`value`). A run that
    // succeeded adds nothing. Otherwise every captured message that a rule maps becomes a
    // problem at its key; when none maps, one problem at `base` with `expected`, carrying the
    // messages as detail.
    void FromParser(bool ok, const std::string& base, const Json::Value& value,
                    const std::vector<std::string>& messages, const std::vector<MessageRule>& rules,
                    const std::string& expected);
    const std::vector<ConfigProblem>& Problems() const { return problems_; }

private:
    std::vector<ConfigProblem> problems_;
};
