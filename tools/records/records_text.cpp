// Text of each record kind, made from its decoded JSON.
#include "tools/records/records_text.h"

#include <stdio.h>

#include <sstream>

#include "tools/records/records_util.h"

namespace Inspect {

namespace {

using InspectUtil::Number;

// A JSON number or "-" for null / anything else.
std::string Num(const Json::Value& v, const std::string& unit = "") {
    return v.isNumeric() ? Number(v.asDouble()) + unit : "-";
}

std::string Str(const Json::Value& v) {
    return v.isString() && !v.asString().empty() ? v.asString() : "-";
}

std::string Pad(const std::string& s, size_t width) {
    return s.size() >= width ? s : s + std::string(width - s.size(), ' ');
}

// Swell values are small (thousandths per day): six significant digits.
std::string Swell(const Json::Value& v) {
    if (!v.isNumeric()) {
        return "-";
    }
    char buf[32];
    snprintf(buf, sizeof(buf), "%.6g", v.asDouble());
    return buf;
}

std::string Hours(const Json::Value& seconds) {
    return seconds.isNumeric() ? Number(seconds.asDouble() / 3600.0) + " h" : "-";
}

const char* Title(const std::string& kind) {
    if (kind == "sys_para")
        return "system parameters";
    if (kind == "basp")
        return "aging-policy record";
    if (kind == "asw")
        return "anti-swelling data";
    if (kind == "cvt")
        return "constant-voltage times";
    if (kind == "acr")
        return "AC impedance log";
    if (kind == "dcr")
        return "DC impedance log";
    if (kind == "eis")
        return "impedance history";
    return "record";
}

void SysPara(std::ostream& out, const Json::Value& d) {
    out << "   version " << Str(d["version"]) << ", protect mark "
        << (d["protect_mark"].isNull() ? "0 (never set)" : Num(d["protect_mark"]))
        << "\n   closed schemes:";
    if (d["closed_schemes"].empty()) {
        out << " none";
    }
    for (const auto& s : d["closed_schemes"]) {
        out << " " << Str(s);
    }
    out << "\n   last limit per protector:" << (d["limits"].empty() ? " none" : "") << "\n";
    for (const auto& l : d["limits"]) {
        out << "     " << Pad(Str(l["protector"]), 20) << Pad(Str(l["value"]), 16) << "from "
            << Str(l["source"]) << "\n";
    }
}

void Basp(std::ostream& out, const Json::Value& d) {
    out << "   battery " << Str(d["battery"]) << ", policy " << Str(d["policy_version"])
        << ", level " << Num(d["level"]) << " (accounted up to "
        << d["level_accounted_at_text"].asString() << ")\n   time per level:";
    if (d["stages"].empty()) {
        out << " none booked yet";
    }
    const char* sep = " ";
    for (const auto& s : d["stages"]) {
        out << sep << "level " << Num(s["level"]) << ": " << Number(s["days"].asDouble()) << " d";
        sep = ", ";
    }
    const Json::Value& ring = d["fcc_ring"];
    out << "\n   learned FCC, oldest first (ring of " << Num(ring["capacity"]) << ", next slot "
        << Num(ring["next_position"]) << "):" << (ring["records"].empty() ? " none" : "") << "\n";
    for (const auto& f : ring["records"]) {
        out << "     " << Pad(Num(f["fcc_mah"], " mAh"), 12) << "first seen "
            << f["first_seen_text"].asString() << "\n";
    }
    const Json::Value& dec = d["decrement"];
    if (dec.isObject()) {
        out << "   voltage decrement " << Num(dec["ndc_vdec_uv"], " uV") << " since "
            << dec["changed_at_text"].asString() << ", swell allowance "
            << Num(dec["no_dec_aswell"]) << "\n";
    } else {
        out << "   voltage decrement: none stored\n";
    }
}

void AswPeriod(std::ostream& out, const std::string& label, const Json::Value& p) {
    out << "   " << Pad(label, 8) << Pad(p["start_text"].asString(), 21)
        << Pad(p["end_text"].asString(), 21) << Pad(Hours(p["accounted_s"]), 11)
        << Pad(Num(p["charger_pct"], " %"), 9) << Pad(Num(p["sim_pct"], " %"), 9)
        << Pad(Num(p["cycle_start"]) + ".." + Num(p["cycle_end"]), 12) << Swell(p["swell"]) << "\n";
}

void Asw(std::ostream& out, const Json::Value& d) {
    out << "   battery " << Str(d["battery"]) << ", policy " << Str(d["policy"]) << ", scene "
        << Num(d["scene"]) << " (condition group " << Num(d["condition_group"]) << "), last report "
        << d["last_report_text"].asString() << "\n";
    out << "   " << Pad("period", 8) << Pad("start", 21) << Pad("last update", 21)
        << Pad("accounted", 11) << Pad("charger", 9) << Pad("SIM", 9) << Pad("cycles", 12)
        << "swell\n";
    AswPeriod(out, "history", d["history"]);
    if (d["history"].isMember("old_swell")) {
        out << "   (history swell includes " << Swell(d["history"]["old_swell"])
            << " carried over from the legacy log)\n";
    }
    if (d["week"].isObject()) {
        AswPeriod(out, "week", d["week"]);
    }
    int n = 1;
    for (const auto& day : d["days"]) {
        AswPeriod(out, "day " + std::to_string(n++), day);
    }
    if (d["today"].isObject()) {
        AswPeriod(out, "today", d["today"]);
    }
}

void Cvt(std::ostream& out, const Json::Value& d) {
    if (!d.isMember("brand")) {
        return;  // an empty record: its note says so
    }
    out << "   brand " << Str(d["brand"]) << ", swelling "
        << (d["swelling"].asBool() ? "yes" : "no") << ", " << Num(d["results_saved"])
        << " results saved, " << d["results"].size() << " kept (newest first):\n";
    for (const auto& r : d["results"]) {
        out << "     #" << Pad(Num(r["number"]), 6) << Pad(r["time_text"].asString(), 21)
            << "measured " << Pad(Num(r["measured_s"], " s"), 9) << "corrected "
            << Pad(Num(r["corrected_s"], " s"), 9) << Pad("cycles " + Num(r["cycles"]), 13)
            << Num(r["temp_c"], " degC") << "\n";
    }
}

void Log(std::ostream& out, const Json::Value& d, bool acr) {
    out << "   records, oldest first: " << d["records"].size() << "\n";
    for (const auto& r : d["records"]) {
        out << "     " << Pad(r["time_text"].asString(), 21) << Pad(Str(r["vendor"]), 12)
            << Pad("cycles " + Num(r["cycles"]), 13) << Pad(Num(r["temp_c"], " degC"), 9);
        if (acr) {
            out << "ACR " << Pad(Num(r["acr"]), 8) << "voltage " << Num(r["voltage"]);
        } else {
            out << "DCR " << Pad(Num(r["dcr"]), 8) << "R0 " << Pad(Num(r["r0"]), 8) << "voltage "
                << Num(r["voltage"][0]);
        }
        out << "\n";
    }
}

void Eis(std::ostream& out, const Json::Value& d) {
    out << "   version " << Num(d["version"]) << ", name " << Str(d["name"]) << ", type "
        << Str(d["type"]) << ", date " << Str(d["date"]) << ", hash " << Str(d["hash"]) << "\n";
    out << "   raw measurements: " << d["raw"].size() << "\n";
    for (const auto& r : d["raw"]) {
        out << "     " << Pad(Num(r["freq_hz"], " Hz"), 9) << Pad("cycles " + Num(r["cycles"]), 13)
            << Pad(Num(r["temp_c"], " degC"), 12) << "magnitude " << Num(r["magnitude"])
            << "  real " << Num(r["real"]) << "  imag " << Num(r["image"]) << "\n";
    }
    out << "   unified sets: " << d["sets"].size() << "\n";
    for (const auto& s : d["sets"]) {
        out << "     " << Pad(Num(s["freq_hz"], " Hz"), 9) << Pad(Num(s["temp_c"], " degC"), 12)
            << s["points"].size() << " points\n";
    }
}

}  // namespace

std::string RecordText(const InspectedRecord& r) {
    std::ostringstream out;
    out << "== " << r.path << "  (" << Title(r.kind) << ")\n";
    const Json::Value& d = r.data;
    if (d.isObject()) {
        if (r.kind == "sys_para") {
            SysPara(out, d);
        } else if (r.kind == "basp") {
            Basp(out, d);
        } else if (r.kind == "asw") {
            Asw(out, d);
        } else if (r.kind == "cvt") {
            Cvt(out, d);
        } else if (r.kind == "acr" || r.kind == "dcr") {
            Log(out, d, r.kind == "acr");
        } else if (r.kind == "eis") {
            Eis(out, d);
        }
    }
    for (const std::string& note : r.notes) {
        out << "   note: " << note << "\n";
    }
    if (!r.ok) {
        out << "   ERROR: " << r.error << "\n";
    }
    return out.str();
}

std::string ReportText(const std::string& root, const std::vector<InspectedRecord>& records) {
    std::ostringstream out;
    out << "records under " << root << " (times in UTC)\n";
    if (records.empty()) {
        out << "no records found\n";
    }
    for (const InspectedRecord& r : records) {
        out << "\n" << RecordText(r);
    }
    return out.str();
}

}  // namespace Inspect
