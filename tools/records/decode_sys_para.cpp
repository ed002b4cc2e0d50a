// sys_para.dat: the daemon's persistent system parameters.
#include "sys_para.pb.h"
#include "tools/records/records_decode.h"
#include "tools/records/records_util.h"

namespace {
constexpr const char* kVersion = "1.0";  // the only version the daemon takes over
}

void DecodeSysPara(const std::string& bytes, InspectedRecord& r) {
    r.kind = "sys_para";
    SysPara para;
    if (bytes.empty()) {
        return r.Fail("empty file");
    }
    if (!para.ParseFromString(bytes)) {
        return r.Fail(
            "not a readable SysPara record (damaged or truncated); the daemon starts "
            "an empty one");
    }
    Json::Value& d = r.data = Json::Value(Json::objectValue);
    d["version"] = InspectUtil::Printable(para.version());
    d["protect_mark"] = para.has_asw() ? Json::Value(para.asw().protect()) : Json::Value();
    d["closed_schemes"] = Json::Value(Json::arrayValue);
    for (const auto& scheme : para.schemes()) {
        d["closed_schemes"].append(InspectUtil::Printable(scheme.name()));
    }
    d["limits"] = Json::Value(Json::arrayValue);
    for (const auto& record : para.records()) {
        Json::Value item(Json::objectValue);
        item["protector"] = InspectUtil::Printable(record.name());
        item["source"] = InspectUtil::Printable(record.src());
        item["value"] = InspectUtil::Printable(record.value());
        d["limits"].append(item);
    }
    r.ok = true;
    if (para.version() != kVersion) {
        r.notes.push_back("version " + InspectUtil::Printable(para.version()) +
                          " is not 1.0: the daemon discards this content at its next start");
    }
}
