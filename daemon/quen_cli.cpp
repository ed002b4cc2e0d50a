#include "daemon/quen_cli.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "daemon/cli_platform.h"
#include "daemon/quen_version.h"

namespace {

void Help(FILE* out) {
    fprintf(out,
            "usage: quen [-d] [--root DIR]\n"
            "       quen --check-config [FILE] [--root DIR] [--json]\n"
            "       quen --help | --version\n"
            "\n"
            "The battery-health daemon. Without a command it runs until none of its\n"
            "estimators runs.\n"
            "  -d                    log info-level messages too\n"
            "  --root DIR            device root (default $QUEN_ROOT); the host build refuses\n"
            "                        to run without one (--root / runs against /)\n"
            "  --check-config [FILE] check FILE, or the configuration start-up would pick\n"
            "                        under the root; exit 0 clean, 1 problems, 2 not checked\n"
            "  --json                print the check's report as JSON\n"
            "  --help, --version     print and exit\n");
}

// "--name=value" or "--name value"; false when `arg` is not `name`.
bool TakeValue(const char* arg, const char* name, int& i, int argc, char** argv, std::string& value,
               bool& missing) {
    const size_t n = strlen(name);
    if (strncmp(arg, name, n) != 0) {
        return false;
    }
    if (arg[n] == '=') {
        value = arg + n + 1;
        return true;
    }
    if (arg[n] != '\0') {
        return false;
    }
    missing = i + 1 >= argc;
    if (!missing) {
        value = argv[++i];
    }
    return true;
}

}  // namespace

int QuenCommandLine(int argc, char** argv, std::vector<char*>& daemonArgs) {
    daemonArgs.clear();
    daemonArgs.push_back(argc > 0 ? argv[0] : const_cast<char*>("quen"));
    bool check = false;
    bool json = false;
    bool rootGiven = false;
    std::string root;
    std::string file;
    for (int i = 1; i < argc; ++i) {
        const char* arg = argv[i];
        bool missing = false;
        if (strcmp(arg, "--help") == 0) {
            Help(stdout);
            return 0;
        }
        if (strcmp(arg, "--version") == 0) {
            printf("quen %s\n", kQuenVersion);
            return 0;
        }
        if (strcmp(arg, "--check-config") == 0) {
            check = true;
            if (i + 1 < argc && argv[i + 1][0] != '-') {
                file = argv[++i];
            }
        } else if (strcmp(arg, "--json") == 0) {
            json = true;
        } else if (TakeValue(arg, "--root", i, argc, argv, root, missing)) {
            if (missing) {
                fprintf(stderr, "quen: --root needs a directory\n");
                return 2;
            }
            rootGiven = true;
        } else if (strcmp(arg, "--") == 0) {
            break;
        } else if (strncmp(arg, "--", 2) == 0) {
            fprintf(stderr, "quen: ignoring unknown option %s\n", arg);
        } else if (arg[0] == '-' && arg[1] != '\0') {
            daemonArgs.push_back(argv[i]);
        } else {
            fprintf(stderr, "quen: ignoring argument %s\n", arg);
        }
    }
    if (check) {
        if (!rootGiven) {
            const char* env = getenv("QUEN_ROOT");
            root = env != nullptr ? env : "";
        }
        return CheckConfigCommand(root, file, json);
    }
    if (json) {
        fprintf(stderr, "quen: ignoring --json (it goes with --check-config)\n");
    }
    const int status = ApplyDaemonRoot(root, rootGiven);
    if (status != 0) {
        return status;
    }
    daemonArgs.push_back(nullptr);
    return -1;
}
