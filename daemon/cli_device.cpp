// Device build: the root is the device's own; the check is a host tool (it captures the
// parsers' log lines through the host log).
#include <stdio.h>

#include "daemon/cli_platform.h"

int ApplyDaemonRoot(const std::string& root, bool given) {
    if (given && root != "/") {
        fprintf(stderr, "quen: --root %s ignored: the device build always runs on /\n",
                root.c_str());
    }
    return 0;
}

int CheckConfigCommand(const std::string&, const std::string&, bool) {
    fprintf(stderr,
            "quen: --check-config runs on the host build (copy the device's "
            "configuration to a host and check it there)\n");
    return 2;
}
