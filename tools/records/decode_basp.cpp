// basp_<battery>.dat: one aging-policy battery's record.
#include <cstdint>

#include "basp_db.pb.h"
#include "tools/records/records_decode.h"
#include "tools/records/records_util.h"

namespace {

constexpr uint32_t kRingCapacity = 5;  // the daemon's ring size
constexpr double kSecondsPerDay = 86400.0;

bool HasUnknownFields(const google::protobuf::Message& m) {
    return !m.GetReflection()->GetUnknownFields(m).empty();
}

bool AnyUnknownFields(const BaspDb& db) {
    if (HasUnknownFields(db)) {
        return true;
    }
    for (const auto& s : db.stages()) {
        if (HasUnknownFields(s)) {
            return true;
        }
    }
    for (const auto& f : db.records()) {
        if (HasUnknownFields(f)) {
            return true;
        }
    }
    for (const auto& p : db.realpolicyrecs()) {
        if (HasUnknownFields(p)) {
            return true;
        }
    }
    return false;
}

// Ring indexes in age order (oldest first), as the daemon reads its ring; false (and stored
// order) when the ring is inconsistent, which makes the daemon clear it at its next start.
bool AgeOrder(const BaspDb& db, std::vector<int>& order) {
    const uint32_t count = static_cast<uint32_t>(db.records_size());
    const bool consistent = db.mnum() == kRingCapacity && count <= kRingCapacity &&
                            db.pos() < kRingCapacity &&
                            (count == kRingCapacity || db.pos() == count);
    const uint32_t start = consistent && count == kRingCapacity ? db.pos() : 0;
    for (uint32_t i = 0; i < count; ++i) {
        order.push_back(static_cast<int>(consistent ? (start + i) % kRingCapacity : i));
    }
    return consistent;
}

}  // namespace

void DecodeBasp(const std::string& bytes, const std::string& battery, InspectedRecord& r) {
    r.kind = "basp";
    BaspDb db;
    if (bytes.empty()) {
        return r.Fail("empty file");
    }
    if (!db.ParseFromString(bytes) || AnyUnknownFields(db)) {
        return r.Fail(
            "not a readable BaspDb record (damaged, truncated or another format); the "
            "daemon starts an empty one");
    }
    Json::Value& d = r.data = Json::Value(Json::objectValue);
    d["battery"] = InspectUtil::Printable(battery);
    d["policy_version"] = InspectUtil::Printable(db.version());
    d["level"] = db.level();
    InspectUtil::PutTime(d, "level_accounted_at", db.timestamp());

    d["stages"] = Json::Value(Json::arrayValue);
    for (const auto& stage : db.stages()) {
        Json::Value item(Json::objectValue);
        item["level"] = stage.level();
        item["seconds"] = stage.seconds();
        item["days"] = stage.seconds() / kSecondsPerDay;
        d["stages"].append(item);
    }

    Json::Value& ring = d["fcc_ring"] = Json::Value(Json::objectValue);
    ring["capacity"] = db.mnum();
    ring["next_position"] = db.pos();
    ring["records"] = Json::Value(Json::arrayValue);
    std::vector<int> order;
    if (!AgeOrder(db, order)) {
        r.notes.push_back("the FCC ring is inconsistent (capacity " + std::to_string(db.mnum()) +
                          ", " + std::to_string(db.records_size()) + " records, next position " +
                          std::to_string(db.pos()) +
                          "): listed in stored order; the daemon clears it at its next start");
    }
    for (int index : order) {
        const auto& rec = db.records(index);
        Json::Value item(Json::objectValue);
        item["fcc_mah"] = rec.fcc();
        InspectUtil::PutTime(item, "first_seen", rec.timestamp());
        ring["records"].append(item);
    }

    if (db.realpolicyrecs_size() > 0) {
        const auto& p = db.realpolicyrecs(0);
        Json::Value& dec = d["decrement"] = Json::Value(Json::objectValue);
        InspectUtil::PutTime(dec, "changed_at", p.timestamp());
        dec["ndc_vdec_uv"] = p.ndcvdecuv();
        dec["no_dec_aswell"] = p.nodecaswell();
    } else {
        d["decrement"] = Json::Value();
    }
    r.ok = true;
}
