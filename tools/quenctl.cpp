// quenctl: the host client of the daemon's control service.
//
//   quenctl [--root DIR] get NAME              prints the parameter's value
//   quenctl [--root DIR] set NAME VALUE        sets it
//   quenctl [--root DIR] call CODE [--s8 TEXT]...  sends any transaction code with String8
//                                              arguments and prints the reply's String8s
// DIR defaults to $QUEN_ROOT, else "/"; the service listens on DIR/dev/socket/soh.service.
// Exit status: 0 when the service answered OK; 1 for any other status (its name and number on
// standard error, e.g. "BAD_TYPE (-2147483647)"); 2 for usage or connection errors.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "platform/host/binder_client.h"

namespace {

constexpr const char* kService = "soh.service";
constexpr uint32_t kGet = 1;
constexpr uint32_t kSet = 2;

void Usage(FILE* out) {
    fprintf(out,
            "usage: quenctl [--root DIR] get NAME\n"
            "       quenctl [--root DIR] set NAME VALUE\n"
            "       quenctl [--root DIR] call CODE [--s8 TEXT]...\n"
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

}  // namespace

int main(int argc, char** argv) {
    std::string root = getenv("QUEN_ROOT") != nullptr ? getenv("QUEN_ROOT") : "";
    std::vector<std::string> args;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0) {
            Usage(stdout);
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
    } else {
        return UsageError("unknown command or wrong number of arguments");
    }

    while (!root.empty() && root.back() == '/') {
        root.pop_back();
    }
    const std::string socket = root + "/dev/socket/" + kService;
    BinderClient client(socket);
    std::string error;
    if (!client.Connect(&error)) {
        fprintf(stderr, "quenctl: cannot connect to %s: %s\n", socket.c_str(), error.c_str());
        return 2;
    }
    android::Parcel reply;
    android::status_t status = client.Transact(code, data, &reply);
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
    }
    return 0;
}
