// Text and JSON forms of the dump state.
#include "service/soh_dump_format.h"

#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <sstream>

namespace {

constexpr int64_t kNsPerSecond = 1000000000LL;
// Keys of a SOC table in the order people read them; any other key follows in key order.
const char* const kSocKeys[] = {"Type",         "Enable",       "LowSoc", "HighSoc",
                                "SmartChgSign", "ShutDownSign", "Force"};

std::string Number(double v) {
    char buf[64];
    if (std::isnan(v)) {
        return "nan";
    }
    if (std::isfinite(v) && v == std::floor(v) && std::fabs(v) < 1e15) {
        snprintf(buf, sizeof(buf), "%.0f", v);
    } else {
        snprintf(buf, sizeof(buf), "%.3f", v);
    }
    return buf;
}

// Local time with its offset, e.g. "2024-06-01 12:00:00 +0200".
std::string LocalTime(int64_t ns) {
    time_t t = static_cast<time_t>(ns / kNsPerSecond);
    struct tm tm {};
    char buf[64];
    if (localtime_r(&t, &tm) == nullptr || strftime(buf, sizeof(buf), "%F %T %z", &tm) == 0) {
        return std::to_string(static_cast<long long>(t));
    }
    return buf;
}

// "45 s", "12 min", "3 h 5 min", "2 d 4 h".
std::string Age(int64_t seconds) {
    std::ostringstream out;
    if (seconds < 120) {
        out << seconds << " s";
    } else if (seconds < 2 * 3600) {
        out << seconds / 60 << " min";
    } else if (seconds < 2 * 86400) {
        out << seconds / 3600 << " h " << (seconds % 3600) / 60 << " min";
    } else {
        out << seconds / 86400 << " d " << (seconds % 86400) / 3600 << " h";
    }
    return out.str();
}

std::string Since(const SohDumpState& state, int64_t changedAtNs) {
    if (changedAtNs == 0) {
        return "";
    }
    std::string text = "  since " + LocalTime(changedAtNs);
    int64_t age = (state.nowNs - changedAtNs) / kNsPerSecond;
    if (age >= 0) {
        text += " (" + Age(age) + " ago)";
    }
    return text;
}

std::string Table(const SohStrategy& table) {
    std::string text;
    auto add = [&text](const std::string& key, double v) {
        text += (text.empty() ? "" : " ") + key + " " + Number(v);
    };
    for (const char* key : kSocKeys) {
        auto it = table.find(key);
        if (it != table.end()) {
            add(key, it->second);
        }
    }
    for (const auto& entry : table) {
        if (std::find_if(std::begin(kSocKeys), std::end(kSocKeys),
                         [&](const char* k) { return entry.first == k; }) == std::end(kSocKeys)) {
            add(entry.first, entry.second);
        }
    }
    return text;
}

double KeyOf(const SohStrategy& table, const char* key) {
    auto it = table.find(key);
    return it == table.end() ? 0.0 : it->second;
}

// What the protector has in force, without the "since" part.
std::string InForce(const ProtectorSnapshot& p) {
    if (p.winner.empty() && p.demands.empty() && p.strategies.empty()) {
        return "no demand yet";
    }
    if (!p.strategies.empty()) {
        auto it = p.strategies.find(p.winner);
        if (p.winner.empty() || it == p.strategies.end()) {
            return "no SOC window in force";
        }
        return "SOC " + Number(KeyOf(it->second, "LowSoc")) + ".." +
               Number(KeyOf(it->second, "HighSoc")) + " %, type " +
               Number(KeyOf(it->second, "Type")) + "  from " + p.winner;
    }
    std::string text = Number(p.value);
    if (p.name == "STOP_CHARGE" && p.value == 0.0) {
        text += " (charging allowed)";
    } else if (p.value == -1.0) {
        text += " (no limit)";
    }
    if (!p.winner.empty()) {
        text += "  from " + p.winner;
    }
    return text;
}

void AppendProtector(std::ostringstream& out, const SohDumpState& state, const ProtectorSnapshot& p,
                     size_t nameWidth) {
    char head[160];
    snprintf(head, sizeof(head), "  %-*s  ", static_cast<int>(nameWidth), p.name.c_str());
    out << head << InForce(p) << Since(state, p.changedAtNs) << "\n";
    size_t width = 0;
    for (const auto& d : p.demands) {
        width = std::max(width, d.first.size());
    }
    for (const auto& s : p.strategies) {
        width = std::max(width, s.first.size());
    }
    for (const auto& d : p.demands) {
        snprintf(head, sizeof(head), "    %-*s  ", static_cast<int>(width), d.first.c_str());
        out << head << Number(d.second) << (d.first == p.winner ? "  <- in force" : "") << "\n";
    }
    for (const auto& s : p.strategies) {
        snprintf(head, sizeof(head), "    %-*s  ", static_cast<int>(width), s.first.c_str());
        out << head << Table(s.second) << (s.first == p.winner ? "  <- in force" : "") << "\n";
    }
}

Json::Value TimeJson(int64_t ns) {
    return ns == 0 ? Json::Value() : Json::Value(static_cast<Json::Int64>(ns / kNsPerSecond));
}

}  // namespace

bool DumpWantsJson(const std::vector<std::string>& args) {
    return std::find(args.begin(), args.end(), "--json") != args.end();
}

std::string FormatDumpText(const SohDumpState& state) {
    std::ostringstream out;
    out << "quen state at " << LocalTime(state.nowNs) << "\n";
    if (state.configPath.empty()) {
        out << "configuration: none loaded\n";
    } else {
        out << "configuration: " << state.configPath << ", version " << state.configVersion << "\n";
    }
    out << "protect mark: " << (state.protectMark ? 1 : 0)
        << ", smart charging: " << state.smartCharging << "\n";

    out << "\nestimators:\n";
    size_t width = 0;
    for (const auto& e : state.estimators) {
        width = std::max(width, e.name.size());
    }
    char head[160];
    for (const auto& e : state.estimators) {
        snprintf(head, sizeof(head), "  %-*s  ", static_cast<int>(width), e.name.c_str());
        out << head << e.runState << (e.schemeClosed ? "  (scheme closed)" : "") << "\n";
    }

    out << "\nprotectors (value in force, from whom, since when; then every demand):\n";
    width = 0;
    for (const auto& p : state.protectors) {
        width = std::max(width, p.name.size());
    }
    for (const auto& p : state.protectors) {
        AppendProtector(out, state, p, width);
    }

    if (state.heartbeats.empty()) {
        out << "\nheartbeats: none running\n";
    } else {
        out << "\nheartbeats (the default comes back after " << state.heartbeatTimeout
            << " s without a renewed request):\n";
        width = 0;
        for (const auto& b : state.heartbeats) {
            width = std::max(width, b.limitator.size());
        }
        for (const auto& b : state.heartbeats) {
            snprintf(head, sizeof(head), "  %-*s  %u s", static_cast<int>(width),
                     b.limitator.c_str(), b.elapsed);
            out << head;
            if (b.elapsed >= state.heartbeatTimeout) {
                out << "  timed out: the default is applied again at every step";
            } else {
                out << "  (default in " << state.heartbeatTimeout - b.elapsed << " s)";
            }
            out << "\n";
        }
    }
    return out.str();
}

Json::Value DumpToJson(const SohDumpState& state) {
    Json::Value root(Json::objectValue);
    root["time"] = TimeJson(state.nowNs);
    root["time_text"] = LocalTime(state.nowNs);
    root["configuration"]["path"] = state.configPath;
    root["configuration"]["version"] = state.configVersion;
    root["protect_mark"] = state.protectMark ? 1 : 0;
    root["smart_charging"] = state.smartCharging;

    Json::Value& estimators = root["estimators"] = Json::Value(Json::arrayValue);
    for (const auto& e : state.estimators) {
        Json::Value item(Json::objectValue);
        item["name"] = e.name;
        item["run_state"] = e.runState;
        item["scheme_closed"] = e.schemeClosed;
        estimators.append(item);
    }

    Json::Value& protectors = root["protectors"] = Json::Value(Json::arrayValue);
    for (const auto& p : state.protectors) {
        Json::Value item(Json::objectValue);
        item["name"] = p.name;
        // A SOC protector keeps tables, not a number: its value would only read as -1.
        item["value"] = p.strategies.empty() ? Json::Value(p.value) : Json::Value();
        item["winner"] = p.winner;
        item["changed_at"] = TimeJson(p.changedAtNs);
        if (p.changedAtNs != 0) {
            item["changed_at_text"] = LocalTime(p.changedAtNs);
            item["age_s"] = static_cast<Json::Int64>((state.nowNs - p.changedAtNs) / kNsPerSecond);
        }
        item["demands"] = Json::Value(Json::objectValue);
        for (const auto& d : p.demands) {
            item["demands"][d.first] = d.second;
        }
        if (!p.strategies.empty()) {
            item["strategies"] = Json::Value(Json::objectValue);
            for (const auto& s : p.strategies) {
                Json::Value& table = item["strategies"][s.first] = Json::Value(Json::objectValue);
                for (const auto& entry : s.second) {
                    table[entry.first] = entry.second;
                }
            }
        }
        protectors.append(item);
    }

    Json::Value& beats = root["heartbeats"] = Json::Value(Json::arrayValue);
    for (const auto& b : state.heartbeats) {
        Json::Value item(Json::objectValue);
        item["limitator"] = b.limitator;
        item["elapsed_s"] = b.elapsed;
        item["timeout_s"] = state.heartbeatTimeout;
        item["timed_out"] = b.elapsed >= state.heartbeatTimeout;
        beats.append(item);
    }
    return root;
}

std::string FormatDumpJson(const SohDumpState& state) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "  ";
    return Json::writeString(writer, DumpToJson(state)) + "\n";
}
