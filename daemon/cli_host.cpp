// Host build: the device root comes from QUEN_ROOT or --root, and the check runs here.
#include <stdio.h>
#include <stdlib.h>

#include "check/config_check.h"
#include "daemon/cli_platform.h"

int ApplyDaemonRoot(const std::string& root, bool given) {
    if (given) {
        if (root.empty()) {
            fprintf(stderr, "quen: --root needs a directory\n");
            return 2;
        }
        setenv("QUEN_ROOT", root.c_str(), 1);
        return 0;
    }
    const char* env = getenv("QUEN_ROOT");
    if (env == nullptr || env[0] == '\0') {
        fprintf(stderr,
                "quen: QUEN_ROOT is not set; this host build would use the host's own /sys, "
                "/log and /data. Set QUEN_ROOT to a device root, or pass --root DIR (--root / "
                "to really run against /).\n");
        return 2;
    }
    return 0;
}

int CheckConfigCommand(const std::string& root, const std::string& file, bool json) {
    ConfigCheckOptions options;
    options.root = root;
    options.file = file;
    ConfigCheckReport report;
    const int status = RunConfigCheck(options, report);
    if (json) {
        fputs(ConfigReportJson(report, status).c_str(), stdout);
    } else {
        PrintConfigReport(report, stdout);
    }
    return status;
}
