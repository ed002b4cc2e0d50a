// cvtnew.data: the ring of constant-voltage times (CvtInfoSave, little-endian).
#include <cstdio>
#include <cstring>

#include "cvt/cvt_data_manage.h"
#include "tools/records/records_decode.h"
#include "tools/records/records_util.h"

void DecodeCvt(const std::string& bytes, InspectedRecord& r) {
    r.kind = "cvt";
    if (bytes.empty()) {  // created at start, filled by the first result
        r.data = Json::Value(Json::objectValue);
        r.data["results"] = Json::Value(Json::arrayValue);
        r.notes.push_back("empty: no constant-voltage time saved yet");
        r.ok = true;
        return;
    }
    if (bytes.size() != sizeof(CvtInfoSave)) {
        return r.Fail("size " + std::to_string(bytes.size()) + " bytes, expected " +
                      std::to_string(sizeof(CvtInfoSave)) +
                      " (damaged or truncated); the daemon resets the record");
    }
    CvtInfoSave rec;
    memcpy(&rec, bytes.data(), sizeof(rec));
    if (rec.magic != CvtInfoSave::kMagic) {
        char why[160];
        snprintf(why, sizeof(why), "magic 0x%08X, expected 0x%08X; the daemon resets the record",
                 rec.magic, CvtInfoSave::kMagic);
        return r.Fail(why);
    }
    Json::Value& d = r.data = Json::Value(Json::objectValue);
    d["brand"] = InspectUtil::FieldText(rec.brand, sizeof(rec.brand));
    d["swelling"] = rec.swellFlag != 0;
    d["results_saved"] = rec.count;
    d["results"] = Json::Value(Json::arrayValue);
    const int kept = rec.count < CvtInfoSave::kSlots ? rec.count : CvtInfoSave::kSlots;
    for (int k = 0; k < kept; ++k) {  // newest first
        const int slot = (rec.count - 1 - k) % CvtInfoSave::kSlots;
        Json::Value item(Json::objectValue);
        item["number"] = rec.count - 1 - k;  // counting every result ever saved from 0
        item["slot"] = slot;
        InspectUtil::PutTime(item, "time", rec.time[slot]);
        item["measured_s"] = rec.orgCvt[slot];
        item["corrected_s"] = rec.calCvt[slot];
        item["cycles"] = rec.batCyc[slot];
        item["temp_c"] = rec.batTemp[slot];
        d["results"].append(item);
    }
    if (rec.swellFlag > 1) {
        r.notes.push_back("swelling flag holds " + std::to_string(rec.swellFlag) +
                          " (the daemon writes only 0 or 1)");
    }
    r.ok = true;
}
