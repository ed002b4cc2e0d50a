#include "tools/records/records_report.h"

#include <stdio.h>

#include <vector>

#include "tools/records/records_plot.h"
#include "tools/records/records_scan.h"
#include "tools/records/records_text.h"

namespace Inspect {

namespace {

Json::Value ToJson(const std::string& root, const std::vector<InspectedRecord>& records,
                   const std::vector<std::string>& plots) {
    Json::Value out(Json::objectValue);
    out["root"] = root;
    out["records"] = Json::Value(Json::arrayValue);
    for (const InspectedRecord& r : records) {
        Json::Value item(Json::objectValue);
        item["path"] = r.path;
        item["kind"] = r.kind;
        item["ok"] = r.ok;
        item["error"] = r.ok ? Json::Value() : Json::Value(r.error);
        item["notes"] = Json::Value(Json::arrayValue);
        for (const std::string& note : r.notes) {
            item["notes"].append(note);
        }
        item["data"] = r.data;
        out["records"].append(item);
    }
    out["plots"] = Json::Value(Json::arrayValue);
    for (const std::string& plot : plots) {
        out["plots"].append(plot);
    }
    return out;
}

}  // namespace

int Run(const Options& options) {
    std::string gnuplot;
    if (!options.plotDir.empty()) {
        gnuplot = FindGnuplot();
        if (gnuplot.empty()) {
            fprintf(stderr,
                    "quenctl: --plot needs gnuplot, which is not installed (not found on PATH); "
                    "install it (Debian: gnuplot-nox) or leave out --plot\n");
            return 2;
        }
    }
    std::vector<InspectedRecord> records;
    std::string error;
    if (!ScanRoot(options.root, records, error)) {
        fprintf(stderr, "quenctl: %s\n", error.c_str());
        return 2;
    }
    std::vector<std::string> plots;
    bool plotted = true;
    if (!options.plotDir.empty()) {
        plotted = WritePlots(records, options.plotDir, gnuplot, plots, error);
    }
    if (options.json) {
        Json::StreamWriterBuilder writer;
        writer["indentation"] = "  ";
        printf("%s\n", Json::writeString(writer, ToJson(options.root, records, plots)).c_str());
    } else {
        printf("%s", ReportText(options.root, records).c_str());
        if (!plots.empty()) {
            printf("\nplots in %s:", options.plotDir.c_str());
            for (const std::string& plot : plots) {
                printf(" %s", plot.c_str());
            }
            printf("\n");
        }
    }
    if (!plotted) {
        fprintf(stderr, "quenctl: plots: %s\n", error.c_str());
        return 2;
    }
    return 0;
}

}  // namespace Inspect
