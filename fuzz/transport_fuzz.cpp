// Control-service transactions as raw bytes on the host transport: the service is started as
// the daemon starts it (its socket, its accepting thread) and each input is one client
// connection. The first byte holds flags (bit 0: pass a descriptor of /dev/null with the
// first bytes, as a dump request does); the rest is sent as the byte stream of the
// connection, which is then half-closed. Every reply is drained until the server closes;
// a server that keeps the connection open long after the client finished is a hang.
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "core/soh_estimator.h"
#include "fuzz/fuzz_device.h"
#include "platform/host/binder_wire.h"
#include "service/soh_service.h"

namespace {

constexpr int kDrainLimitMs = 20000;

std::string Start() {
    FuzzDevice::Setup();
    FuzzDevice::DeclareAll();
    EstimatorPool().GetObjectByName("APP");
    EstimatorPool().GetObjectByName("ASW");
    SohService::Start();
    return BinderWire::SocketPath(SohService::kServiceName);
}

int Connect(const std::string& path) {
    int sock = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un addr {};
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path.c_str());
    if (sock < 0 || connect(sock, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) != 0) {
        perror("fuzz: connect to the service");
        abort();
    }
    return sock;
}

// Reads until the server closes; aborts when it does not within kDrainLimitMs.
void Drain(int sock) {
    const int64_t deadline = BinderWire::NowMs() + kDrainLimitMs;
    char buf[4096];
    for (;;) {
        int64_t left = deadline - BinderWire::NowMs();
        struct pollfd pfd = {sock, POLLIN, 0};
        if (left <= 0 || poll(&pfd, 1, static_cast<int>(left)) == 0) {
            fprintf(stderr, "fuzz: the service kept a finished connection open\n");
            abort();
        }
        ssize_t n = recv(sock, buf, sizeof(buf), 0);
        if (n == 0 || (n < 0 && errno != EINTR && errno != EAGAIN)) {
            return;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string socketPath = Start();
    static const int devNull = open("/dev/null", O_WRONLY | O_CLOEXEC);
    FuzzInput in(data, size);
    const bool passFd = (in.Byte() & 1) != 0;
    const std::string stream = in.Rest();

    int sock = Connect(socketPath);
    if (!stream.empty()) {
        // A server that closes early (a malformed header) leaves the rest unsent.
        BinderWire::SendAll(sock, stream.data(), stream.size(), passFd ? devNull : -1,
                            BinderWire::NowMs() + kDrainLimitMs);
    }
    shutdown(sock, SHUT_WR);
    Drain(sock);
    close(sock);
    return 0;
}
