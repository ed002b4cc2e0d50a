// The impedance records: acr.dat and dcr.dat (fixed-size records appended in order) and the
// history /log/soh/eis (Eis::HistoryData sealed by a SHA-256 hash).
#include <cstring>

#include "eis/eis_estimator.h"
#include "eis/eis_info.h"
#include "eisdata.pb.h"
#include "tools/records/records_decode.h"
#include "tools/records/records_util.h"

namespace {

constexpr int64_t kZeroCelsiusMk = 273150;

// Decodes the whole records of a log; a tail that is not a whole record makes the file
// damaged, and the daemon appends nothing more to such a file.
template <typename Record, typename Fill>
void DecodeLog(const std::string& bytes, const char* kind, InspectedRecord& r, Fill fill) {
    r.kind = kind;
    r.data = Json::Value(Json::objectValue);
    r.data["record_size"] = static_cast<Json::UInt>(sizeof(Record));
    Json::Value& records = r.data["records"] = Json::Value(Json::arrayValue);
    const size_t whole = bytes.size() / sizeof(Record);
    for (size_t i = 0; i < whole; ++i) {
        Record rec;
        memcpy(&rec, bytes.data() + i * sizeof(Record), sizeof(Record));
        Json::Value item(Json::objectValue);
        item["time_text"] = InspectUtil::FieldText(rec.updTime, sizeof(rec.updTime));
        int64_t t = 0;
        item["time"] = InspectUtil::ParseUtc(item["time_text"].asString(), t)
                           ? Json::Value(static_cast<Json::Int64>(t))
                           : Json::Value();
        item["vendor"] = InspectUtil::FieldText(rec.batVendor, sizeof(rec.batVendor));
        fill(rec, item);
        records.append(item);
    }
    const size_t rest = bytes.size() % sizeof(Record);
    if (rest != 0) {
        r.Fail("size " + std::to_string(bytes.size()) + " is not a multiple of " +
               std::to_string(sizeof(Record)) + ": " + std::to_string(whole) +
               " whole records and " + std::to_string(rest) +
               " bytes left over; the daemon appends nothing more to this file");
        return;
    }
    r.ok = true;
    if (whole == 0) {
        r.notes.push_back("no records yet");
    }
}

Json::Value Values(const uint32_t* v, int n) {
    Json::Value out(Json::arrayValue);
    for (int i = 0; i < n; ++i) {
        out.append(v[i]);
    }
    return out;
}

Json::Value Temperature(uint32_t mk) {
    Json::Value t(Json::objectValue);
    t["temp_mk"] = mk;
    t["temp_c"] = (static_cast<int64_t>(mk) - kZeroCelsiusMk) / 1000.0;
    return t;
}

}  // namespace

void DecodeAcrLog(const std::string& bytes, InspectedRecord& r) {
    DecodeLog<AcrRecord>(bytes, "acr", r, [](const AcrRecord& rec, Json::Value& item) {
        item["type"] = rec.acrType;
        item["cycles"] = rec.batCyc;
        item["temp_c"] = rec.batTemp;
        item["acr"] = rec.acrOrgReal[0];
        item["org_real"] = Values(rec.acrOrgReal, kEisValues);
        item["org_imag"] = Values(rec.acrOrgImag, kEisValues);
        item["soh"] = rec.batSoh;
        item["ic_temp_max_c"] = rec.icTempMax;
        item["ic_temp_min_c"] = rec.icTempMin;
        item["voltage"] = rec.batVol;
        item["cal_real"] = Values(rec.acrCalReal, kEisValues);
        item["cal_imag"] = Values(rec.acrCalImag, kEisValues);
    });
}

void DecodeDcrLog(const std::string& bytes, InspectedRecord& r) {
    DecodeLog<DcrRecord>(bytes, "dcr", r, [](const DcrRecord& rec, Json::Value& item) {
        item["type"] = rec.dcrType;
        item["cycles"] = rec.batCyc;
        item["temp_c"] = rec.batTemp;
        item["dcr"] = rec.dcrOrg;
        item["dcr_cal"] = rec.dcrCal;
        item["r0"] = rec.batR0;
        item["soh"] = rec.batSoh;
        item["voltage"] = Values(rec.batVol, kEisValues);
        item["current"] = Values(rec.batCurr, kEisValues);
        item["qmax"] = rec.qmax;
    });
}

void DecodeEisHistory(const std::string& bytes, InspectedRecord& r) {
    r.kind = "eis";
    Eis::HistoryData hist;
    if (bytes.empty()) {
        return r.Fail("empty file");
    }
    if (!hist.ParseFromString(bytes)) {
        return r.Fail(
            "not a readable impedance history (damaged or truncated); the daemon "
            "starts a new one");
    }
    Json::Value& d = r.data = Json::Value(Json::objectValue);
    d["version"] = hist.version();
    d["name"] = InspectUtil::Printable(hist.name());
    d["type"] = InspectUtil::Printable(hist.type());
    d["date"] = InspectUtil::Printable(hist.date());
    std::string expected;
    if (!hist.has_hash()) {
        d["hash"] = "missing";
    } else if (!EISEstimator::HistHash(hist, expected)) {
        d["hash"] = "not computable";
    } else {
        d["hash"] = hist.hash() == expected ? "verified" : "mismatch";
    }
    d["raw"] = Json::Value(Json::arrayValue);
    for (const auto& raw : hist.raw()) {
        Json::Value item = Temperature(raw.temp());
        item["cycles"] = raw.cycles();
        item["freq_hz"] = static_cast<Json::Int64>(raw.freq());
        item["real"] = raw.real();
        item["image"] = raw.image();
        item["magnitude"] = raw.magnitude();
        item["phase"] = raw.phase();
        d["raw"].append(item);
    }
    d["sets"] = Json::Value(Json::arrayValue);
    for (const auto& set : hist.uniset()) {
        Json::Value item = Temperature(set.temp());
        item["freq_hz"] = static_cast<Json::Int64>(set.freq());
        item["points"] = Json::Value(Json::arrayValue);
        for (const auto& p : set.points()) {
            Json::Value point(Json::objectValue);
            point["cycles"] = p.cycles();
            point["real"] = p.real();
            point["image"] = p.image();
            point["magnitude"] = p.magnitude();
            point["phase"] = p.phase();
            item["points"].append(point);
        }
        d["sets"].append(item);
    }
    if (d["hash"].asString() != "verified") {
        r.Fail("hash " + d["hash"].asString() + ": the daemon discards this history");
        return;
    }
    r.ok = true;
}
