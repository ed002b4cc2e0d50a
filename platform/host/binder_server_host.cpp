// Host service manager and process state: serves each added binder on its Unix stream
// socket (framing in binder_wire.h).
//
// Threads: startThreadPool() starts one detached accepting thread per service (and addService
// starts one for each later service); each accepted connection gets its own detached thread,
// which reads one request after another, calls transact() on the binder and sends the reply.
// None of them ever stops.
//
// Locks: Registry::lock guards the service list and whether the pool runs, and serialises
// addService (stale-socket check, bind). ConnectionSlots::lock guards the count of served
// connections and the once-per-burst refusal log flag; the accepting thread waits on
// ConnectionSlots::freed (with a time limit) for a slot. Neither is held while serving or
// while calling into a binder. Both objects, the services and their binders are never
// destroyed, so that detached threads never see them go at process exit.
#include <android/log.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <errno.h>
#include <poll.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/host/binder_wire.h"
#include "platform/soh_root.h"

namespace android {

namespace {

using BinderWire::RecvAll;
using BinderWire::RecvResult;

constexpr int kListenBacklog = 64;
constexpr int kAcceptRetryMs = 50;
constexpr int kAcceptRetryMaxMs = 800;
constexpr int kSlotWaitMs = 250;

struct Service {
    std::string name;
    int listenFd;
    sp<IBinder> binder;
    bool serving;  // guarded by Registry::lock
};

struct Registry {
    std::mutex lock;
    std::vector<Service*> services;  // guarded by lock
    bool poolStarted = false;        // guarded by lock
};

Registry& TheRegistry() {
    static Registry* registry = new Registry;
    return *registry;
}

struct ConnectionSlots {
    std::mutex lock;
    std::condition_variable freed;  // signalled when a slot is released
    int active = 0;                 // guarded by lock
    bool refusalLogged = false;     // guarded by lock; cleared when a connection is admitted
};

ConnectionSlots& TheSlots() {
    static ConnectionSlots* slots = new ConnectionSlots;
    return *slots;
}

void LogError(const char* format, ...) __attribute__((format(printf, 1, 2)));

void LogError(const char* format, ...) {
    char text[256];
    va_list ap;
    va_start(ap, format);
    vsnprintf(text, sizeof(text), format, ap);
    va_end(ap);
    __android_log_write(ANDROID_LOG_ERROR, "quen", text);
}

bool StartDetached(std::function<void()> body) {
    try {
        std::thread(std::move(body)).detach();
        return true;
    } catch (...) {
        return false;
    }
}

// Admits one more connection. When all slots are taken it waits up to kSlotWaitMs for one
// to be freed (a client that just closed a connection and opened the next one would
// otherwise be refused while the old connection's thread is still noticing the close);
// then refuses, logging the first refusal of a burst.
bool TakeSlot(const std::string& service) {
    ConnectionSlots& slots = TheSlots();
    bool logRefusal = false;
    {
        std::unique_lock<std::mutex> lock(slots.lock);
        if (slots.freed.wait_for(lock, std::chrono::milliseconds(kSlotWaitMs),
                                 [&slots] { return slots.active < BinderWire::kMaxConnections; })) {
            ++slots.active;
            slots.refusalLogged = false;
            return true;
        }
        logRefusal = !slots.refusalLogged;
        slots.refusalLogged = true;
    }
    if (logRefusal) {
        LogError("binder service %s: %d connections busy, refusing new ones\n", service.c_str(),
                 BinderWire::kMaxConnections);
    }
    return false;
}

void ReleaseSlot() {
    ConnectionSlots& slots = TheSlots();
    {
        std::lock_guard<std::mutex> lock(slots.lock);
        --slots.active;
    }
    slots.freed.notify_one();
}

enum class ReadResult { kRequest, kGone, kMalformed };

// Reads one request. kGone: the peer closed, failed or stayed idle; kMalformed: answer
// BAD_VALUE. A descriptor that came with the header is left in *fd in every case.
ReadResult ReadRequest(int sock, BinderWire::RequestHeader* header, std::vector<uint8_t>* payload,
                       int* fd) {
    char* raw = reinterpret_cast<char*>(header);
    if (RecvAll(sock, raw, 1, BinderWire::NowMs() + BinderWire::kIdleTimeoutMs, fd) !=
        RecvResult::kOk) {
        return ReadResult::kGone;
    }
    int64_t deadline = BinderWire::NowMs() + BinderWire::kRequestTimeoutMs;
    RecvResult r = RecvAll(sock, raw + 1, sizeof(*header) - 1, deadline, fd);
    if (r == RecvResult::kOk &&
        (header->magic != BinderWire::kMagic || header->size > BinderWire::kMaxPayload)) {
        return ReadResult::kMalformed;
    }
    if (r == RecvResult::kOk && header->size > 0) {
        payload->resize(header->size);
        r = RecvAll(sock, payload->data(), header->size, deadline, nullptr);
    }
    if (r == RecvResult::kTimedOut) {
        return ReadResult::kMalformed;
    }
    return r == RecvResult::kOk ? ReadResult::kRequest : ReadResult::kGone;
}

bool SendReply(int sock, status_t status, const Parcel* reply) {
    BinderWire::ReplyHeader header{status, 0};
    size_t size = 0;
    if (status >= OK && reply != nullptr) {
        if (reply->dataSize() > BinderWire::kMaxPayload) {
            header.status = FAILED_TRANSACTION;
        } else {
            size = reply->dataSize();
        }
    }
    header.size = static_cast<uint32_t>(size);
    std::vector<uint8_t> out(sizeof(header) + size);
    memcpy(out.data(), &header, sizeof(header));
    if (size > 0) {
        memcpy(out.data() + sizeof(header), reply->data(), size);
    }
    return BinderWire::SendAll(sock, out.data(), out.size(), -1,
                               BinderWire::NowMs() + BinderWire::kRequestTimeoutMs);
}

// Serves one connection until the peer goes or misbehaves; owns `sock` and one slot.
void ServeConnection(int sock, const sp<IBinder>& binder) {
    for (;;) {
        BinderWire::RequestHeader header{};
        std::vector<uint8_t> payload;
        int fd = -1;
        ReadResult read = ReadRequest(sock, &header, &payload, &fd);
        if (read != ReadResult::kRequest) {
            if (fd >= 0) {
                close(fd);
            }
            if (read == ReadResult::kMalformed) {
                SendReply(sock, BAD_VALUE, nullptr);
            }
            break;
        }
        Parcel data;
        data.setData(payload.data(), payload.size());
        ParcelFdAccess::Set(data, fd);
        Parcel reply;
        status_t status = binder->transact(header.code, data, &reply, header.flags);
        if (fd >= 0) {
            close(fd);
        }
        if ((header.flags & IBinder::FLAG_ONEWAY) != 0) {
            continue;
        }
        if (!SendReply(sock, status, &reply)) {
            break;
        }
    }
    close(sock);
    ReleaseSlot();
}

// Accepts connections for ever. When accept() fails for a reason that lasts (out of
// descriptors: the pending connection stays queued and the socket stays readable, so
// retrying at once would spin), it waits kAcceptRetryMs doubling up to kAcceptRetryMaxMs
// between tries, logs the first failure and, once a connection is accepted again, how many
// tries failed.
void AcceptLoop(Service* service) {
    long failures = 0;
    int retryMs = kAcceptRetryMs;
    for (;;) {
        int sock = accept4(service->listenFd, nullptr, nullptr, SOCK_CLOEXEC);
        if (sock < 0) {
            if (errno == EINTR || errno == ECONNABORTED) {
                continue;
            }
            if (failures++ == 0) {
                LogError("binder service %s: accept failed: %s\n", service->name.c_str(),
                         strerror(errno));
            }
            poll(nullptr, 0, retryMs);
            retryMs = retryMs * 2 > kAcceptRetryMaxMs ? kAcceptRetryMaxMs : retryMs * 2;
            continue;
        }
        if (failures > 0) {
            LogError("binder service %s: accepting again after %ld failed tries\n",
                     service->name.c_str(), failures);
            failures = 0;
            retryMs = kAcceptRetryMs;
        }
        if (!TakeSlot(service->name)) {
            close(sock);
            continue;
        }
        sp<IBinder> binder = service->binder;
        if (!StartDetached([sock, binder]() { ServeConnection(sock, binder); })) {
            LogError("binder service %s: cannot start a connection thread\n",
                     service->name.c_str());
            close(sock);
            ReleaseSlot();
        }
    }
}

// Starts the accepting thread of `service`. Registry::lock must be held.
bool StartServingLocked(Service* service) {
    if (!StartDetached([service]() { AcceptLoop(service); })) {
        LogError("binder service %s: cannot start its thread\n", service->name.c_str());
        return false;
    }
    service->serving = true;
    return true;
}

bool ValidName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string("/\0", 2)) == std::string::npos;
}

// Makes way for a new socket at `path`: a socket nobody listens on is removed.
status_t ClearStaleSocket(const std::string& path, const struct sockaddr_un& addr) {
    struct stat st {};
    if (lstat(path.c_str(), &st) != 0) {
        return errno == ENOENT ? OK : -errno;
    }
    if (!S_ISSOCK(st.st_mode)) {
        return ALREADY_EXISTS;
    }
    int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (probe < 0) {
        return -errno;
    }
    int rc = connect(probe, reinterpret_cast<const struct sockaddr*>(&addr), sizeof(addr));
    int err = rc == 0 ? 0 : errno;
    close(probe);
    if (rc == 0 || err == EAGAIN || err == EINPROGRESS) {
        return ALREADY_EXISTS;  // a live server holds it
    }
    if (err == ENOENT) {
        return OK;
    }
    if (err != ECONNREFUSED) {
        return -err;
    }
    if (unlink(path.c_str()) != 0 && errno != ENOENT) {
        return -errno;
    }
    return OK;
}

class HostServiceManager : public IServiceManager {
public:
    status_t addService(const String16& name, const sp<IBinder>& service, bool /*allowIsolated*/,
                        int /*dumpsysFlags*/) override {
        String8 name8(name);
        std::string serviceName(name8.c_str(), name8.size());
        if (!ValidName(serviceName) || service == nullptr) {
            return BAD_VALUE;
        }
        std::string path = BinderWire::SocketPath(serviceName);
        struct sockaddr_un addr {};
        addr.sun_family = AF_UNIX;
        if (path.size() >= sizeof(addr.sun_path)) {
            return -ENAMETOOLONG;
        }
        memcpy(addr.sun_path, path.c_str(), path.size() + 1);
        mkdir(SohRoot::RootPath("/dev").c_str(), 0755);
        mkdir(SohRoot::RootPath("/dev/socket").c_str(), 0755);

        Registry& registry = TheRegistry();
        std::lock_guard<std::mutex> lock(registry.lock);
        status_t err = ClearStaleSocket(path, addr);
        if (err != OK) {
            return err;
        }
        int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd < 0) {
            return -errno;
        }
        if (bind(fd, reinterpret_cast<const struct sockaddr*>(&addr), sizeof(addr)) != 0) {
            err = -errno;
            close(fd);
            return err;
        }
        if (chmod(path.c_str(), 0660) != 0 || listen(fd, kListenBacklog) != 0) {
            err = -errno;
            close(fd);
            unlink(path.c_str());
            return err;
        }
        Service* entry = new Service{serviceName, fd, service, false};
        if (registry.poolStarted && !StartServingLocked(entry)) {
            close(fd);
            unlink(path.c_str());
            delete entry;
            return NO_MEMORY;
        }
        registry.services.push_back(entry);
        return OK;
    }
};

}  // namespace

IServiceManager::IServiceManager() = default;

IServiceManager::~IServiceManager() = default;

sp<IServiceManager> defaultServiceManager() {
    static sp<IServiceManager>* manager = new sp<IServiceManager>(new HostServiceManager);
    return *manager;
}

ProcessState::ProcessState() = default;

ProcessState::~ProcessState() = default;

sp<ProcessState> ProcessState::self() {
    static sp<ProcessState>* state = new sp<ProcessState>(new ProcessState);
    return *state;
}

void ProcessState::startThreadPool() {
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.lock);
    registry.poolStarted = true;
    for (Service* service : registry.services) {
        if (!service->serving) {
            StartServingLocked(service);
        }
    }
}

}  // namespace android
