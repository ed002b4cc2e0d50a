// Host binder client (see binder_client.h). lock_ guards the connection.
#include "platform/host/binder_client.h"

#include <binder/IBinder.h>
#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <vector>

#include "platform/host/binder_wire.h"

using android::status_t;

BinderClient::BinderClient(const std::string& socketPath) : path_(socketPath), sock_(-1) {}

BinderClient::~BinderClient() {
    std::lock_guard<std::mutex> lock(lock_);
    CloseLocked();
}

void BinderClient::CloseLocked() {
    if (sock_ >= 0) {
        close(sock_);
        sock_ = -1;
    }
}

bool BinderClient::Connect(std::string* error) {
    std::lock_guard<std::mutex> lock(lock_);
    CloseLocked();
    struct sockaddr_un addr {};
    addr.sun_family = AF_UNIX;
    if (path_.size() >= sizeof(addr.sun_path)) {
        if (error != nullptr) {
            *error = "socket path too long";
        }
        return false;
    }
    memcpy(addr.sun_path, path_.c_str(), path_.size() + 1);
    int sock = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (sock < 0 ||
        connect(sock, reinterpret_cast<const struct sockaddr*>(&addr), sizeof(addr)) != 0) {
        if (error != nullptr) {
            *error = strerror(errno);
        }
        if (sock >= 0) {
            close(sock);
        }
        return false;
    }
    sock_ = sock;
    return true;
}

status_t BinderClient::Transact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                uint32_t flags, int fd) {
    std::lock_guard<std::mutex> lock(lock_);
    if (sock_ < 0) {
        return android::DEAD_OBJECT;
    }
    if (data.dataSize() > BinderWire::kMaxPayload) {
        return android::FAILED_TRANSACTION;
    }
    BinderWire::RequestHeader header{BinderWire::kMagic, code, flags,
                                     static_cast<uint32_t>(data.dataSize())};
    std::vector<uint8_t> out(sizeof(header) + data.dataSize());
    memcpy(out.data(), &header, sizeof(header));
    if (data.dataSize() > 0) {
        memcpy(out.data() + sizeof(header), data.data(), data.dataSize());
    }
    if (!BinderWire::SendAll(sock_, out.data(), out.size(), fd, -1)) {
        CloseLocked();
        return android::DEAD_OBJECT;
    }
    if ((flags & android::IBinder::FLAG_ONEWAY) != 0) {
        return android::OK;
    }
    BinderWire::ReplyHeader answer{};
    if (BinderWire::RecvAll(sock_, &answer, sizeof(answer), -1, nullptr) !=
            BinderWire::RecvResult::kOk ||
        answer.size > BinderWire::kMaxPayload) {
        CloseLocked();
        return android::DEAD_OBJECT;
    }
    std::vector<uint8_t> payload(answer.size);
    if (answer.size > 0 && BinderWire::RecvAll(sock_, payload.data(), answer.size, -1, nullptr) !=
                               BinderWire::RecvResult::kOk) {
        CloseLocked();
        return android::DEAD_OBJECT;
    }
    if (reply != nullptr) {
        reply->setData(payload.data(), payload.size());
    }
    return answer.status;
}

const char* StatusName(status_t status) {
    switch (status) {
        case android::OK:
            return "OK";
        case android::UNKNOWN_ERROR:
            return "UNKNOWN_ERROR";
        case android::NO_MEMORY:
            return "NO_MEMORY";
        case android::INVALID_OPERATION:
            return "INVALID_OPERATION";
        case android::BAD_VALUE:
            return "BAD_VALUE";
        case android::BAD_TYPE:
            return "BAD_TYPE";
        case android::NAME_NOT_FOUND:
            return "NAME_NOT_FOUND";
        case android::PERMISSION_DENIED:
            return "PERMISSION_DENIED";
        case android::NO_INIT:
            return "NO_INIT";
        case android::ALREADY_EXISTS:
            return "ALREADY_EXISTS";
        case android::DEAD_OBJECT:
            return "DEAD_OBJECT";
        case android::FAILED_TRANSACTION:
            return "FAILED_TRANSACTION";
        case android::BAD_INDEX:
            return "BAD_INDEX";
        case android::NOT_ENOUGH_DATA:
            return "NOT_ENOUGH_DATA";
        case android::WOULD_BLOCK:
            return "WOULD_BLOCK";
        case android::TIMED_OUT:
            return "TIMED_OUT";
        case android::UNKNOWN_TRANSACTION:
            return "UNKNOWN_TRANSACTION";
        case android::FDS_NOT_ALLOWED:
            return "FDS_NOT_ALLOWED";
        case android::UNEXPECTED_NULL:
            return "UNEXPECTED_NULL";
        default:
            return "UNKNOWN";
    }
}
