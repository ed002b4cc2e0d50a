// One control-service round trip: a get of "smart_charge_enable" on an open connection to
// "soh.service", served in this process on its socket under the bench root (the host binder
// transport, a pool thread per connection, the route to "APP", the reply).
//
// Floor: the same request and reply sizes bounced over a connected Unix stream socket pair by
// an echo thread: send, receive, send, receive, and the two thread wake-ups in between.
#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "bench/bench_support.h"
#include "core/soh_estimator.h"
#include "platform/host/binder_client.h"
#include "platform/host/binder_wire.h"
#include "service/soh_service.h"

namespace {

constexpr const char* kPara = "smart_charge_enable";

BinderClient& Client() {
    static BinderClient* client = [] {
        bench::DeclareObjects();
        if (EstimatorPool().GetObjectByName("APP") == nullptr) {
            bench::Fail("no APP estimator");
        }
        SohService::Start();
        auto* c = new BinderClient(BinderWire::SocketPath(SohService::kServiceName));
        std::string error;
        if (!c->Connect(&error)) {
            bench::Fail("cannot connect to the service: " + error);
        }
        return c;
    }();
    return *client;
}

void FillRequest(android::Parcel& data) {
    data.writeString8(android::String8(kPara));
}

void service_round_trip(benchmark::State& state) {
    BinderClient& client = Client();
    android::Parcel data;
    FillRequest(data);
    for (auto _ : state) {
        android::Parcel reply;
        if (client.Transact(SohService::kCodeGetPara, data, &reply) != android::OK) {
            state.SkipWithError("the service did not answer OK");
            break;
        }
        benchmark::DoNotOptimize(reply.dataSize());
    }
}
BENCHMARK(service_round_trip)->UseRealTime();

void service_round_trip_floor(benchmark::State& state) {
    // Sizes of the real exchange: request header and parcel, reply header and parcel.
    android::Parcel data;
    FillRequest(data);
    android::Parcel reply;
    if (Client().Transact(SohService::kCodeGetPara, data, &reply) != android::OK) {
        bench::Fail("the service did not answer OK");
    }
    const size_t requestBytes = sizeof(BinderWire::RequestHeader) + data.dataSize();
    const size_t replyBytes = sizeof(BinderWire::ReplyHeader) + reply.dataSize();

    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
        bench::Fail("socketpair failed");
    }
    std::thread echo([fd = pair[1], requestBytes, replyBytes] {
        std::vector<char> buf(requestBytes);
        std::vector<char> out(replyBytes);
        while (recv(fd, buf.data(), buf.size(), MSG_WAITALL) ==
               static_cast<ssize_t>(requestBytes)) {
            if (send(fd, out.data(), out.size(), MSG_NOSIGNAL) < 0) {
                break;
            }
        }
    });
    std::vector<char> request(requestBytes);
    std::vector<char> answer(replyBytes);
    for (auto _ : state) {
        send(pair[0], request.data(), request.size(), MSG_NOSIGNAL);
        recv(pair[0], answer.data(), answer.size(), MSG_WAITALL);
    }
    shutdown(pair[0], SHUT_RDWR);
    echo.join();
    close(pair[0]);
    close(pair[1]);
}
BENCHMARK(service_round_trip_floor)->UseRealTime();

}  // namespace
