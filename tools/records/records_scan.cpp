// Locating the record files, reading them and dispatching to the decoders.
#include "tools/records/records_scan.h"

#include "core/soh_json.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <set>
#include <sstream>

#include "asw/asw_common.h"
#include "basp/basp_nodes.h"
#include "core/soh_configure.h"
#include "cvt/cvt_nodes.h"
#include "eis/eis_nodes.h"
#include "tools/records/records_decode.h"

namespace Inspect {

namespace {

// "/log/soh/" from "/log/soh/sys_para.dat".
std::string DirOf(const std::string& devicePath) {
    return devicePath.substr(0, devicePath.rfind('/') + 1);
}

std::string BaseOf(const std::string& devicePath) {
    return devicePath.substr(devicePath.rfind('/') + 1);
}

bool StartsWith(const std::string& s, const std::string& prefix) {
    return s.compare(0, prefix.size(), prefix) == 0;
}

bool EndsWith(const std::string& s, const std::string& suffix) {
    return s.size() >= suffix.size() &&
           s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// Reads a whole regular file of at most kMaxRecordBytes; false with the reason.
bool ReadFile(const std::string& path, std::string& bytes, std::string& error) {
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);  // a FIFO never blocks
    struct stat st {};
    if (fd < 0 || fstat(fd, &st) != 0) {
        error = std::string("cannot read: ") + strerror(errno);
        if (fd >= 0) {
            close(fd);
        }
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        close(fd);
        error = "not a regular file";
        return false;
    }
    bytes.clear();
    char buf[65536];
    for (;;) {
        ssize_t n = read(fd, buf, sizeof(buf));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            error = std::string("cannot read: ") + strerror(errno);
            close(fd);
            return false;
        }
        if (n == 0) {
            break;
        }
        if (bytes.size() + static_cast<size_t>(n) > kMaxRecordBytes) {
            error = "larger than " + std::to_string(kMaxRecordBytes) + " bytes: not a record";
            close(fd);
            return false;
        }
        bytes.append(buf, static_cast<size_t>(n));
    }
    close(fd);
    return true;
}

// Names in a directory; empty when it cannot be listed.
std::vector<std::string> List(const std::string& dir) {
    std::vector<std::string> names;
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) {
        return names;
    }
    while (struct dirent* e = readdir(d)) {
        std::string name = e->d_name;
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    closedir(d);
    std::sort(names.begin(), names.end());
    return names;
}

Json::Value Member(const Json::Value& v, const std::string& key) {
    return v.isObject() ? v.get(key, Json::Value()) : Json::Value();
}

struct Config {
    std::string path;  // relative to the root
    Json::Value root;
};

std::vector<Config> LoadConfigs(const std::string& root) {
    std::vector<Config> configs;
    for (const std::string& dir :
         {std::string(SohPaths::kOtaConfigDir), std::string(SohPaths::kOdmConfigDir),
          std::string(SohPaths::kVendorConfigDir), std::string("/")}) {
        const std::string rel = dir + SohPaths::kConfigFileName;
        std::string bytes;
        std::string error;
        if (!ReadFile(root + rel, bytes, error)) {
            continue;
        }
        Config c{rel, Json::Value()};
        if (SohJson::Parse(bytes, c.root, false, &error) && c.root.isObject()) {
            configs.push_back(std::move(c));
        }
    }
    return configs;
}

// The swell table configured for ASW battery `battery`; null when no configuration has one.
Json::Value SwellTableOf(const std::vector<Config>& configs, const std::string& battery,
                         std::string& source) {
    for (const Config& c : configs) {
        Json::Value asw = Member(Member(c.root, "Estimators"), "ASW");
        if (Member(asw, "Common").isObject()) {
            asw = Member(asw, "Common");
        }
        const Json::Value batteries = Member(asw, "Battery");
        if (!batteries.isArray()) {
            continue;
        }
        for (const Json::Value& b : batteries) {
            const Json::Value name = Member(b, "Name");
            const Json::Value table = Member(b, "SwellTabe");
            if (name.isString() && name.asString() == battery && table.isString()) {
                source = c.path;
                return Member(asw, table.asString());
            }
        }
    }
    return Json::Value();
}

using Decoder =
    std::function<void(const std::string& bytes, const std::string& name, InspectedRecord& r)>;

struct Kind {
    const char* kind;
    std::string dir;  // device directory of the record
    std::function<bool(const std::string& name)> matches;
    Decoder decode;
};

}  // namespace

bool ScanRoot(const std::string& rootIn, std::vector<InspectedRecord>& records,
              std::string& error) {
    std::string root = rootIn;
    while (root.size() > 1 && root.back() == '/') {
        root.pop_back();
    }
    if (root == "/") {
        root.clear();  // device paths already start with "/"
    }
    struct stat st {};
    const std::string rootDir = root.empty() ? "/" : root;
    if (stat(rootDir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        error = rootDir + " is not a readable directory";
        return false;
    }
    const std::vector<Config> configs = LoadConfigs(root);
    const std::string bPrefix = BaseOf(BaspNodes::kDbPrefix);
    const std::string aPrefix = AswNodes::kDataPrefix;
    const std::string sysPara = BaseOf(SohPaths::kSysParaFile);
    auto named = [](const std::string& want) {
        return [want](const std::string& name) { return name == want; };
    };
    auto stem = [](const std::string& name, const std::string& prefix, const std::string& suffix) {
        return name.substr(prefix.size(), name.size() - prefix.size() - suffix.size());
    };
    const std::vector<Kind> kinds = {
        {"sys_para", DirOf(SohPaths::kSysParaFile), named(sysPara),
         [](const std::string& b, const std::string&, InspectedRecord& r) { DecodeSysPara(b, r); }},
        {"basp", DirOf(BaspNodes::kDbPrefix),
         [&](const std::string& n) {
             return StartsWith(n, bPrefix) && EndsWith(n, BaspNodes::kDbSuffix) &&
                    n.size() > bPrefix.size() + strlen(BaspNodes::kDbSuffix);
         },
         [&](const std::string& b, const std::string& n, InspectedRecord& r) {
             DecodeBasp(b, stem(n, bPrefix, BaspNodes::kDbSuffix), r);
         }},
        {"asw", AswNodes::kDataDir,
         [&](const std::string& n) {
             return StartsWith(n, aPrefix) && EndsWith(n, AswNodes::kDataSuffix) &&
                    n.size() > aPrefix.size() + strlen(AswNodes::kDataSuffix);
         },
         [&](const std::string& b, const std::string& n, InspectedRecord& r) {
             const std::string battery = stem(n, aPrefix, AswNodes::kDataSuffix);
             std::string source;
             Json::Value table = SwellTableOf(configs, battery, source);
             DecodeAsw(b, battery, table, source, r);
         }},
        {"cvt", DirOf(CvtNodes::kCvtFile), named(BaseOf(CvtNodes::kCvtFile)),
         [](const std::string& b, const std::string&, InspectedRecord& r) { DecodeCvt(b, r); }},
        {"acr", DirOf(EisNodes::kAcrLogFile), named(BaseOf(EisNodes::kAcrLogFile)),
         [](const std::string& b, const std::string&, InspectedRecord& r) { DecodeAcrLog(b, r); }},
        {"dcr", DirOf(EisNodes::kDcrLogFile), named(BaseOf(EisNodes::kDcrLogFile)),
         [](const std::string& b, const std::string&, InspectedRecord& r) { DecodeDcrLog(b, r); }},
        {"eis", DirOf(EisNodes::kHistFile),
         [](const std::string& n) {
             return n == BaseOf(EisNodes::kHistFile) || n == BaseOf(EisNodes::kHistBackFile);
         },
         [](const std::string& b, const std::string&, InspectedRecord& r) {
             DecodeEisHistory(b, r);
         }},
    };

    std::set<std::string> seen;  // host paths already decoded
    for (const Kind& kind : kinds) {
        // The device directory first, then the root itself (a pulled directory).
        for (const std::string& dir : {kind.dir, std::string("/")}) {
            for (const std::string& name : List(root + dir)) {
                if (!kind.matches(name)) {
                    continue;
                }
                const std::string rel = dir + name;
                char* real = realpath((root + rel).c_str(), nullptr);
                const std::string key = real != nullptr ? real : root + rel;
                free(real);
                if (!seen.insert(key).second) {
                    continue;
                }
                InspectedRecord r;
                r.kind = kind.kind;
                r.path = rel;
                std::string bytes;
                std::string why;
                if (!ReadFile(root + rel, bytes, why)) {
                    r.Fail(why);
                } else {
                    try {
                        kind.decode(bytes, name, r);
                    } catch (const std::exception& e) {
                        r.Fail(std::string("cannot decode: ") + e.what());
                    }
                }
                r.path = rel;
                records.push_back(std::move(r));
            }
        }
    }
    return true;
}

}  // namespace Inspect
