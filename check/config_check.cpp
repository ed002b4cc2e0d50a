#include "check/config_check.h"

#include <ftw.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "check/log_capture.h"
#include "core/soh_configure.h"
#include "core/soh_estimator.h"
#include "daemon/soh_declare.h"
#include "platform/soh_root.h"

namespace {

// Points the daemon's file access at `root` ("" : the paths as given) until destroyed.
class RootScope {
public:
    explicit RootScope(const std::string& root) {
        const char* old = getenv("QUEN_ROOT");
        had_ = old != nullptr;
        old_ = had_ ? old : "";
        Set(root);
    }
    ~RootScope() { had_ ? Set(old_) : Set(""); }
    static void Set(const std::string& root) {
        if (root.empty()) {
            unsetenv("QUEN_ROOT");
        } else {
            setenv("QUEN_ROOT", root.c_str(), 1);
        }
    }

private:
    bool had_;
    std::string old_;
};

bool ReadWhole(const std::string& path, std::string& text) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return false;
    }
    std::ostringstream buf;
    buf << in.rdbuf();
    text = buf.str();
    return !in.bad();
}

// The reader's own account of why `text` does not parse (line and column).
std::string ParseError(const std::string& text) {
    Json::Reader reader;
    Json::Value ignored;
    if (reader.parse(text, ignored, true)) {
        return ignored.isNull() ? "an empty document" : "";
    }
    std::string error = reader.getFormattedErrorMessages();
    while (!error.empty() && (error.back() == '\n' || error.back() == ' ')) {
        error.pop_back();
    }
    for (char& c : error) {
        c = c == '\n' ? ' ' : c;
    }
    return error;
}

int RemoveEntry(const char* path, const struct stat*, int, struct FTW*) {
    return remove(path);
}

// A scratch device root holding only `text` as the image configuration and, when given, a
// copy of the device's system parameter record.
class ScratchRoot {
public:
    bool Create(const std::string& text, const std::string& sysPara) {
        const char* tmp = getenv("TMPDIR");
        std::string pattern =
            std::string(tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp") + "/quen-check-XXXXXX";
        if (mkdtemp(&pattern[0]) == nullptr) {
            return false;
        }
        dir_ = pattern;
        for (const char* sub : {"/odm", "/odm/etc", "/odm/etc/power", "/log", "/log/soh"}) {
            if (mkdir((dir_ + sub).c_str(), 0700) != 0) {
                return false;
            }
        }
        std::ofstream out(dir_ + SohPaths::kOdmConfigDir + SohPaths::kConfigFileName,
                          std::ios::binary);
        out << text;
        if (!out.flush()) {
            return false;
        }
        if (sysPara.empty()) {
            return true;
        }
        std::ofstream para(dir_ + SohPaths::kSysParaFile, std::ios::binary);
        para << sysPara;
        return static_cast<bool>(para.flush());
    }
    ~ScratchRoot() {
        if (!dir_.empty()) {
            nftw(dir_.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS);
        }
    }
    const std::string& Dir() const { return dir_; }

private:
    std::string dir_;
};

// Picks the configuration as start-up does; false (with report.fatal) when none would load.
bool PickFromRoot(const std::string& root, ConfigCheckReport& report, std::string& text,
                  Findings& findings) {
    RootScope scope(root);
    LogCapture capture(true);
    SOHConfigure::ConfigInfo candidates;
    const int rc = SOHConfigure::GetConfigInfo(candidates);
    for (std::string& line : capture.Take()) {
        report.why.push_back(std::move(line));
    }
    if (rc != 0) {
        report.fatal = candidates.empty()
                           ? "no usable configuration under the root"
                           : "the image holds no usable configuration, so the daemon loads none "
                             "(an over-the-air candidate alone is not used)";
        return false;
    }
    if (candidates.size() >= 2) {
        SOHConfigure::SortConfigInfo(candidates);
        report.why.push_back("candidates are taken highest version first");
    }
    for (const auto& candidate : candidates) {
        Json::Value root;
        const std::string& path = candidate.first;
        auto version = candidate.second.find("version");
        const std::string ver = version == candidate.second.end() ? "" : version->second;
        if (SOHConfigure::ParseJsonFile(path, root) == 0) {
            capture.Take();
            report.file = path;
            report.version = ver;
            report.why.push_back("chosen: " + path + " (version " + ver + ")");
            return ReadWhole(SohRoot::RootPath(path), text);
        }
        for (std::string& line : capture.Take()) {
            report.why.push_back(std::move(line));
        }
        std::string raw;
        if (ReadWhole(SohRoot::RootPath(path), raw)) {
            findings.AddFound("", "a JSON document (" + path + ")", ParseError(raw));
        }
    }
    report.fatal = "no candidate parses";
    return false;
}

// The slice the daemon hands an estimator: its "Common" member when that is an object,
// otherwise the member itself.
const Json::Value& Slice(const Json::Value& member, const std::string& base, std::string& path) {
    const bool common = member.isMember("Common") && member["Common"].isObject();
    path = common ? CheckPath::Key(base, "Common") : base;
    return common ? member["Common"] : member;
}

void CheckDocument(const Json::Value& doc, Findings& findings, std::vector<std::string>& names) {
    if (!doc.isObject()) {
        findings.Add("", "a JSON object", &doc);
        return;
    }
    if (!doc.isMember("Estimators") || !doc["Estimators"].isObject()) {
        findings.Add("Estimators", "an object: estimator name -> its section",
                     doc.isMember("Estimators") ? &doc["Estimators"] : nullptr);
        return;
    }
    const Json::Value& estimators = doc["Estimators"];
    for (const std::string& name : estimators.getMemberNames()) {
        const std::string base = CheckPath::Key("Estimators", name);
        const Json::Value& member = estimators[name];
        bool declared = false;
        {
            LogCapture quiet;  // construction logs what it reads; that is not a finding
            declared = EstimatorPool().GetObjectByName(name) != nullptr;
        }
        if (!declared) {
            findings.Add(base, "an estimator of this build: APP, ASW, BASP, CFSD, CVT, EIS or ISCD",
                         &member);
            continue;
        }
        if (!member.isObject()) {
            findings.Add(base, "an object", &member);
            continue;
        }
        names.push_back(name);
        CheckProtectors(member, base, findings);
        std::string path;
        const Json::Value& slice = Slice(member, base, path);
        CheckEstimatorSlice(name, slice, path, findings);
    }
}

// The limits the device's parameter record holds for APP's protectors: what APP demands again
// at start. The caller has pointed QUEN_ROOT at the scratch copy.
std::vector<std::pair<std::string, std::string>> RestoredLimits(const Json::Value& doc) {
    std::vector<std::pair<std::string, std::string>> out;
    const Json::Value& protectors = doc["Estimators"]["APP"]["Protectors"];
    if (!protectors.isArray()) {
        return out;
    }
    LogCapture quiet;
    for (const Json::Value& p : protectors) {
        std::string src;
        std::string value;
        if (p.isString() && SOHConfigure::GetLimitRecord(p.asString(), src, value) == 0) {
            out.emplace_back("restores " + p.asString(), value + " (set by " + src + ")");
        }
    }
    return out;
}

}  // namespace

int RunConfigCheck(const ConfigCheckOptions& options, ConfigCheckReport& report) {
    report = ConfigCheckReport();
    report.root = options.root;
    Findings findings;
    std::string text;
    if (!options.file.empty()) {
        report.file = options.file;
        report.why.push_back("given on the command line");
        if (!ReadWhole(options.file, text)) {
            report.fatal = "cannot read " + options.file;
            return 2;
        }
    } else if (options.root.empty()) {
        report.fatal = "no file and no device root to pick one from";
        return 2;
    } else if (!PickFromRoot(options.root, report, text, findings)) {
        report.problems = findings.Problems();
        return 2;
    }

    const std::string parseError = ParseError(text);
    if (!parseError.empty()) {
        findings.AddFound("", "a JSON document", parseError);
        report.problems = findings.Problems();
        return 1;
    }
    std::vector<std::string> names;
    std::vector<std::pair<std::string, std::string>> restored;
    Json::Value doc;
    Json::Reader().parse(text, doc, true);
    {
        ScratchRoot scratch;
        // The limits APP restores at start come from the device's record; a copy is read.
        std::string sysPara;
        if (!options.root.empty()) {
            ReadWhole(options.root + SohPaths::kSysParaFile, sysPara);
        }
        if (!scratch.Create(text, sysPara)) {
            report.fatal = "cannot create a scratch directory";
            return 2;
        }
        RootScope scope(scratch.Dir());
        DeclearEstimators();
        DeclearProtectors();
        CheckDocument(doc, findings, names);
        if (!options.root.empty()) {
            restored = RestoredLimits(doc);
        }
    }
    report.problems = findings.Problems();

    if (!options.root.empty()) {
        RootScope scope(options.root);
        for (const std::string& name : names) {
            std::string path;
            const Json::Value& slice =
                Slice(doc["Estimators"][name], CheckPath::Key("Estimators", name), path);
            report.device.push_back(ChooseForDevice(name, slice, path));
            if (name == "APP") {
                report.device.back().uses = restored;
            }
        }
    }
    return report.problems.empty() ? 0 : 1;
}
