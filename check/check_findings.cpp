#include "check/check_findings.h"

#include <cctype>
#include <regex>

namespace {

bool IsIdentifier(const std::string& key) {
    if (key.empty() || std::isdigit(static_cast<unsigned char>(key[0]))) {
        return false;
    }
    for (char c : key) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_') {
            return false;
        }
    }
    return true;
}

const char* TypeName(const Json::Value& v) {
    switch (v.type()) {
        case Json::nullValue:
            return "null";
        case Json::intValue:
        case Json::uintValue:
            return "integer";
        case Json::realValue:
            return "number";
        case Json::stringValue:
            return "string";
        case Json::booleanValue:
            return "boolean";
        case Json::arrayValue:
            return "array";
        case Json::objectValue:
            return "object";
    }
    return "value";
}

// Resolves a relative path ("Name", "TempRecoup.Ratio") below `value`; null when absent.
const Json::Value* Resolve(const Json::Value& value, const std::string& rel) {
    const Json::Value* at = &value;
    size_t start = 0;
    while (start <= rel.size()) {
        size_t dot = rel.find('.', start);
        std::string part =
            rel.substr(start, dot == std::string::npos ? std::string::npos : dot - start);
        if (!at->isObject() || !at->isMember(part)) {
            return nullptr;
        }
        at = &(*at)[part];
        if (dot == std::string::npos) {
            break;
        }
        start = dot + 1;
    }
    return at;
}

}  // namespace

namespace CheckPath {

std::string Key(const std::string& base, const std::string& key) {
    if (IsIdentifier(key)) {
        return base.empty() ? key : base + "." + key;
    }
    return base + "[\"" + key + "\"]";
}

std::string Index(const std::string& base, unsigned index) {
    return base + "[" + std::to_string(index) + "]";
}

}  // namespace CheckPath

std::string DescribeValue(const Json::Value* value) {
    if (value == nullptr) {
        return "nothing";
    }
    std::string out = TypeName(*value);
    if (value->isArray() || value->isObject()) {
        const bool one = value->size() == 1;
        return out + " of " + std::to_string(value->size()) +
               (value->isArray() ? (one ? " element" : " elements")
                                 : (one ? " member" : " members"));
    }
    if (value->isNull()) {
        return out;
    }
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    std::string text = Json::writeString(writer, *value);
    if (text.size() > 40) {
        text = text.substr(0, 37) + "...";
    }
    return out + " " + text;
}

void Findings::Add(std::string path, std::string expected, const Json::Value* found,
                   std::string detail) {
    problems_.push_back(ConfigProblem{std::move(path), std::move(expected), DescribeValue(found),
                                      std::move(detail)});
}

void Findings::AddFound(std::string path, std::string expected, std::string found) {
    problems_.push_back(ConfigProblem{std::move(path), std::move(expected), std::move(found), ""});
}

void Findings::FromParser(bool ok, const std::string& base, const Json::Value& value,
                          const std::vector<std::string>& messages,
                          const std::vector<MessageRule>& rules, const std::string& expected) {
    if (ok) {
        return;  // parsers also log optional keys they default; only failures are problems
    }
    bool mapped = false;
    std::string all;
    for (const std::string& message : messages) {
        const MessageRule* match = nullptr;
        std::smatch m;
        for (const MessageRule& rule : rules) {
            if (std::regex_match(message, m, std::regex(rule.pattern))) {
                match = &rule;
                break;
            }
        }
        if (match != nullptr && match->key == nullptr) {
            continue;  // an optional value the parser defaulted
        }
        all += (all.empty() ? "" : "; ") + message;
        if (match != nullptr) {
            const MessageRule& rule = *match;
            std::string key = rule.key;
            size_t at = key.find("$1");
            if (at != std::string::npos) {
                key.replace(at, 2, m.size() > 1 ? m[1].str() : "");
            }
            std::string path = base;
            size_t start = 0;
            while (!key.empty() && start <= key.size()) {
                size_t dot = key.find('.', start);
                path = CheckPath::Key(
                    path,
                    key.substr(start, dot == std::string::npos ? std::string::npos : dot - start));
                if (dot == std::string::npos) {
                    break;
                }
                start = dot + 1;
            }
            problems_.push_back(
                ConfigProblem{path, rule.expected,
                              DescribeValue(key.empty() ? &value : Resolve(value, key)), message});
            mapped = true;
            break;
        }
    }
    if (!mapped) {
        problems_.push_back(ConfigProblem{base, expected, DescribeValue(&value), all});
    }
}
