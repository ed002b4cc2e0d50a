// Text and JSON forms of a configuration check report.
#include <json/json.h>

#include "check/config_check.h"

namespace {

std::string ChoiceLine(const EstimatorChoice& c) {
    std::string line = c.estimator + ": ";
    if (c.batteryPath.empty()) {
        return line + "no battery entry applies";
    }
    line += "battery " + (c.battery.empty() ? std::string("(unnamed)") : c.battery) + " (" +
            c.batteryPath + ")";
    for (const auto& use : c.uses) {
        line += ", " + use.first + " " + use.second;
    }
    return line;
}

}  // namespace

void PrintConfigReport(const ConfigCheckReport& report, FILE* out) {
    fprintf(out, "configuration: %s", report.file.empty() ? "(none)" : report.file.c_str());
    if (!report.version.empty()) {
        fprintf(out, " (version %s)", report.version.c_str());
    }
    fprintf(out, "\n");
    for (const std::string& line : report.why) {
        fprintf(out, "  %s\n", line.c_str());
    }
    if (!report.fatal.empty()) {
        fprintf(out, "error: %s\n", report.fatal.c_str());
    }
    fprintf(out, "problems: %zu\n", report.problems.size());
    for (const ConfigProblem& p : report.problems) {
        fprintf(out, "  %s: expected %s, found %s\n",
                p.path.empty() ? "(document)" : p.path.c_str(), p.expected.c_str(),
                p.found.c_str());
        if (!p.detail.empty()) {
            fprintf(out, "    (%s)\n", p.detail.c_str());
        }
    }
    if (!report.root.empty() && !report.device.empty()) {
        fprintf(out, "on the device at %s:\n", report.root.c_str());
        for (const EstimatorChoice& c : report.device) {
            if (c.estimator == "ASW" || c.estimator == "BASP" || c.estimator == "CVT" ||
                !c.batteryPath.empty()) {
                fprintf(out, "  %s\n", ChoiceLine(c).c_str());
            } else if (!c.uses.empty()) {
                std::string line = c.estimator + ":";
                for (const auto& use : c.uses) {
                    line += (line.back() == ':' ? " " : ", ") + use.first + " " + use.second;
                }
                fprintf(out, "  %s\n", line.c_str());
            } else {
                fprintf(out, "  %s: no battery policy\n", c.estimator.c_str());
            }
        }
    }
    fprintf(out, "result: %s\n",
            !report.fatal.empty()     ? "not checked"
            : report.problems.empty() ? "OK"
                                      : "problems found");
}

std::string ConfigReportJson(const ConfigCheckReport& report, int status) {
    Json::Value doc(Json::objectValue);
    doc["status"] = status;
    doc["root"] = report.root;
    doc["file"] = report.file;
    doc["version"] = report.version;
    doc["why"] = Json::Value(Json::arrayValue);
    for (const std::string& line : report.why) {
        doc["why"].append(line);
    }
    if (!report.fatal.empty()) {
        doc["error"] = report.fatal;
    }
    doc["problems"] = Json::Value(Json::arrayValue);
    for (const ConfigProblem& p : report.problems) {
        Json::Value item(Json::objectValue);
        item["path"] = p.path;
        item["expected"] = p.expected;
        item["found"] = p.found;
        item["detail"] = p.detail;
        doc["problems"].append(item);
    }
    doc["device"] = Json::Value(Json::arrayValue);
    for (const EstimatorChoice& c : report.device) {
        Json::Value item(Json::objectValue);
        item["estimator"] = c.estimator;
        item["battery"] = c.battery;
        item["path"] = c.batteryPath;
        Json::Value uses(Json::objectValue);
        for (const auto& use : c.uses) {
            uses[use.first] = use.second;
        }
        item["uses"] = uses;
        doc["device"].append(item);
    }
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "  ";
    return Json::writeString(writer, doc) + "\n";
}
