// quenctl: the host client of the daemon's control service, and the record inspector.
//
//   quenctl [--root DIR] get NAME              prints the parameter's value
//   quenctl [--root DIR] set NAME VALUE        sets it
//   quenctl [--root DIR] call CODE [--s8 TEXT]...  sends any transaction code with String8
//                                              arguments and prints the reply's String8s
//   quenctl [--root DIR] status [--json]       prints the daemon's state (the service's dump)
//   quenctl [--root DIR] status --watch [SECONDS] [--json]
//                                              redraws it every SECONDS (default 2) until
//                                              interrupted (SIGINT or SIGTERM: exit 0)
//   quenctl --help | --version
//   quenctl [--root DIR] inspect [--json] [--plot PLOTDIR]
//                                              decodes the persistent records under DIR (a
//                                              device root or a directory pulled from a phone)
// DIR defaults to $QUEN_ROOT, else "/"; the service listens on DIR/dev/socket/soh.service.
// Exit status: 0 when the service answered OK; 1 for any other status (its name and number on
// standard error, e.g. "BAD_TYPE (-2147483647)"); 2 for usage or connection errors. inspect
// exits 0 once it could read DIR (damaged records are reported in its output) and 2 when DIR
// cannot be read or the plots cannot be drawn (e.g. gnuplot is missing).
#include <binder/IBinder.h>
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <unistd.h>
#include <utils/String16.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <string>
#include <vector>

#include "daemon/quen_version.h"
#include "platform/host/binder_client.h"
#include "tools/records/records_report.h"

namespace {

constexpr const char* kService = "soh.service";
constexpr uint32_t kGet = 1;
constexpr uint32_t kSet = 2;

void Usage(FILE* out) {
    fprintf(out,
            "usage: quenctl [--root DIR] get NAME\n"
            "       quenctl [--root DIR] set NAME VALUE\n"
            "       quenctl [--root DIR] call CODE [--s8 TEXT]...\n"
            "       quenctl [--root DIR] status [--json] [--watch [SECONDS]]\n"
            "       quenctl [--root DIR] inspect [--json] [--plot PLOTDIR]\n"
            "       quenctl --help | --version\n"
            "DIR defaults to $QUEN_ROOT, else /. Exit: 0 OK, 1 other status, 2 usage or "
            "connection error.\n");
}

int UsageError(const char* why) {
    fprintf(stderr, "quenctl: %s\n", why);
    Usage(stderr);
    return 2;
}

bool ParseCode(const char* text, uint32_t& code) {
    char* end = nullptr;
    errno = 0;
    unsigned long v = strtoul(text, &end, 0);
    if (end == text || *end != '\0' || errno != 0 || v > UINT32_MAX || text[0] == '-') {
        return false;
    }
    code = static_cast<uint32_t>(v);
    return true;
}

// Prints every String8 of the reply, one per line; whatever does not parse as String8s is
// printed as hexadecimal bytes.
void PrintReply(const android::Parcel& reply) {
    reply.setDataPosition(0);
    while (reply.dataAvail() > 0) {
        size_t at = reply.dataPosition();
        android::String8 s;
        if (reply.readString8(&s) != android::OK) {
            printf("(raw)");
            for (size_t i = at; i < reply.dataSize(); ++i) {
                printf(" %02x", reply.data()[i]);
            }
            printf("\n");
            return;
        }
        printf("%s\n", s.c_str());
    }
}

// Copies everything the dump wrote into `fd` (from its start) to standard output.
bool CopyDump(int fd, FILE* out) {
    if (lseek(fd, 0, SEEK_SET) != 0) {
        return false;
    }
    char buf[8192];
    for (ssize_t n; (n = read(fd, buf, sizeof(buf))) != 0;) {
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        fwrite(buf, 1, static_cast<size_t>(n), out);
    }
    return true;
}

volatile sig_atomic_t gStop = 0;

void OnStop(int) {
    gStop = 1;
}

// "2", "0.5": seconds between redraws, at least 0.05 and at most a day.
bool ParseSeconds(const std::string& text, double& seconds) {
    char* end = nullptr;
    errno = 0;
    seconds = strtod(text.c_str(), &end);
    return end != text.c_str() && *end == '\0' && errno == 0 && std::isfinite(seconds) &&
           seconds >= 0.05 && seconds <= 86400;
}

// One status dump into `out`: 0, 1 for a status other than OK, 2 when the service cannot be
// reached. Messages go to `err`.
int DumpStatus(const std::string& socket, bool json, FILE* out, FILE* err) {
    android::Parcel data;
    data.writeInt32(json ? 1 : 0);
    if (json) {
        data.writeString16(android::String16("--json"));
    }
    FILE* dump = tmpfile();
    if (dump == nullptr) {
        fprintf(err, "quenctl: cannot create a temporary file: %s\n", strerror(errno));
        return 2;
    }
    BinderClient client(socket);
    std::string error;
    int rc = 0;
    android::Parcel reply;
    if (!client.Connect(&error)) {
        fprintf(err, "quenctl: cannot connect to %s: %s\n", socket.c_str(), error.c_str());
        rc = 2;
    } else {
        android::status_t status =
            client.Transact(android::IBinder::DUMP_TRANSACTION, data, &reply, 0, fileno(dump));
        if (status != android::OK) {
            fprintf(err, "%s (%d)\n", StatusName(status), static_cast<int>(status));
            rc = status == android::DEAD_OBJECT ? 2 : 1;
        } else {
            fflush(stdout);
            rc = CopyDump(fileno(dump), out) ? 0 : 2;
        }
    }
    fclose(dump);
    return rc;
}

// Redraws the status until SIGINT or SIGTERM. On a terminal each frame replaces the last; into
// a pipe or file the frames follow each other, each after a "== status HH:MM:SS" line. A daemon
// that is down shows as a frame with the error; the next turn tries again.
int WatchStatus(const std::string& socket, bool json, double seconds) {
    struct sigaction sa {};
    sa.sa_handler = OnStop;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);  // no SA_RESTART: the sleep ends at once
    sigaction(SIGTERM, &sa, nullptr);
    const bool tty = isatty(fileno(stdout)) != 0;
    while (!gStop) {
        char when[16] = "";
        time_t now = time(nullptr);
        struct tm tm {};
        if (localtime_r(&now, &tm) != nullptr) {
            strftime(when, sizeof(when), "%H:%M:%S", &tm);
        }
        if (tty) {
            printf("\033[H\033[2J");
        }
        printf("== status %s (every %g s, Ctrl-C to stop)\n", when, seconds);
        fflush(stdout);
        DumpStatus(socket, json, stdout, stdout);  // an error is part of the frame
        fflush(stdout);
        struct timespec left {};
        left.tv_sec = static_cast<time_t>(seconds);
        left.tv_nsec = static_cast<long>((seconds - static_cast<double>(left.tv_sec)) * 1e9);
        while (!gStop && nanosleep(&left, &left) != 0 && errno == EINTR) {
        }
    }
    return 0;
}

std::string SocketPath(std::string root) {
    while (!root.empty() && root.back() == '/') {
        root.pop_back();
    }
    return root + "/dev/socket/" + kService;
}

}  // namespace

int main(int argc, char** argv) {
    std::string root = getenv("QUEN_ROOT") != nullptr ? getenv("QUEN_ROOT") : "";
    std::vector<std::string> args;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0) {
            Usage(stdout);
            return 0;
        }
        if (strcmp(argv[i], "--version") == 0) {
            printf("quenctl %s\n", kQuenVersion);
            return 0;
        }
        if (strcmp(argv[i], "--root") == 0) {
            if (i + 1 >= argc) {
                return UsageError("--root needs a directory");
            }
            root = argv[++i];
            continue;
        }
        args.emplace_back(argv[i]);
    }
    if (args.empty()) {
        return UsageError("no command");
    }

    android::Parcel data;
    uint32_t code = 0;
    FILE* dumpFile = nullptr;  // receives the dump; closed at exit
    const std::string& cmd = args[0];
    if (cmd == "get" && args.size() == 2) {
        code = kGet;
        data.writeString8(android::String8(args[1].c_str()));
    } else if (cmd == "set" && args.size() == 3) {
        code = kSet;
        data.writeString8(android::String8(args[1].c_str()));
        data.writeString8(android::String8(args[2].c_str()));
    } else if (cmd == "call" && args.size() >= 2) {
        if (!ParseCode(args[1].c_str(), code)) {
            return UsageError("CODE must be a number");
        }
        for (size_t i = 2; i < args.size(); i += 2) {
            if (args[i] != "--s8" || i + 1 >= args.size()) {
                return UsageError("call takes --s8 TEXT arguments");
            }
            data.writeString8(android::String8(args[i + 1].c_str()));
        }
    } else if (cmd == "status" && std::find(args.begin(), args.end(), "--watch") != args.end()) {
        bool json = false;
        double seconds = 2;
        for (size_t i = 1; i < args.size(); ++i) {
            if (args[i] == "--json") {
                json = true;
            } else if (args[i] == "--watch" && i + 1 < args.size() && args[i + 1] != "--json") {
                if (!ParseSeconds(args[++i], seconds)) {
                    return UsageError("--watch takes seconds between 0.05 and 86400");
                }
            } else if (args[i] != "--watch") {
                return UsageError("status takes --json and --watch [SECONDS]");
            }
        }
        return WatchStatus(SocketPath(root), json, seconds);
    } else if (cmd == "status" && (args.size() == 1 || (args.size() == 2 && args[1] == "--json"))) {
        code = android::IBinder::DUMP_TRANSACTION;
        data.writeInt32(static_cast<int32_t>(args.size() - 1));
        for (size_t i = 1; i < args.size(); ++i) {
            data.writeString16(android::String16(args[i].c_str()));
        }
        // A file, not a pipe: the daemon writes the whole dump before it answers.
        dumpFile = tmpfile();
        if (dumpFile == nullptr) {
            fprintf(stderr, "quenctl: cannot create a temporary file: %s\n", strerror(errno));
            return 2;
        }
    } else if (cmd == "inspect") {
        Inspect::Options options;
        options.root = root.empty() ? "/" : root;
        for (size_t i = 1; i < args.size(); ++i) {
            if (args[i] == "--json") {
                options.json = true;
            } else if (args[i] == "--plot" && i + 1 < args.size()) {
                options.plotDir = args[++i];
            } else {
                return UsageError("inspect takes --json and --plot PLOTDIR");
            }
        }
        return Inspect::Run(options);
    } else {
        return UsageError("unknown command or wrong number of arguments");
    }

    const std::string socket = SocketPath(root);
    BinderClient client(socket);
    std::string error;
    if (!client.Connect(&error)) {
        fprintf(stderr, "quenctl: cannot connect to %s: %s\n", socket.c_str(), error.c_str());
        return 2;
    }
    android::Parcel reply;
    const int fd = dumpFile != nullptr ? fileno(dumpFile) : -1;
    android::status_t status = client.Transact(code, data, &reply, 0, fd);
    if (status == android::DEAD_OBJECT) {
        fprintf(stderr, "quenctl: the service at %s closed the connection\n", socket.c_str());
        return 2;
    }
    if (status != android::OK) {
        fprintf(stderr, "%s (%d)\n", StatusName(status), static_cast<int>(status));
        return 1;
    }
    if (code == kGet) {
        reply.setDataPosition(0);
        printf("%s\n", reply.readString8().c_str());
    } else if (cmd == "call") {
        PrintReply(reply);
    } else if (dumpFile != nullptr && !CopyDump(fd, stdout)) {
        fprintf(stderr, "quenctl: cannot read the dump back: %s\n", strerror(errno));
        return 2;
    }
    return 0;
}
