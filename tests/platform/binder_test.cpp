// Host binder substitute: the Parcel layout, strong pointers, and services served over their
// Unix sockets as the control tool and the daemon's clients see them.
#include <binder/Binder.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/host/binder_client.h"
#include "platform/host/binder_wire.h"
#include "tests/support/fake_device.h"

using namespace android;

namespace {

std::vector<uint8_t> Bytes(const Parcel& p) {
    return std::vector<uint8_t>(p.data(), p.data() + p.dataSize());
}

void Load(Parcel& p, const std::vector<uint8_t>& bytes) {
    ASSERT_EQ(p.setData(bytes.data(), bytes.size()), OK);
}

std::string Text(const String8& s) {
    return std::string(s.c_str(), s.size());
}

String8 S8(const std::string& s) {
    return String8(s.data(), s.size());
}

bool ConnectTo(int fd, const std::string& path) {
    struct sockaddr_un addr {};
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path.c_str());
    return connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0;
}

// --- Parcel layout -------------------------------------------------------------------------

TEST(ParcelLayout, StringsAreLengthBytesTerminatorAndPaddingToFourBytes) {
    Parcel p;
    ASSERT_EQ(p.writeString8(String8("abc")), OK);
    EXPECT_EQ(Bytes(p), (std::vector<uint8_t>{3, 0, 0, 0, 'a', 'b', 'c', 0}));

    p.freeData();
    ASSERT_EQ(p.writeString8(String8("abcd")), OK);
    EXPECT_EQ(Bytes(p), (std::vector<uint8_t>{4, 0, 0, 0, 'a', 'b', 'c', 'd', 0, 0, 0, 0}));

    p.freeData();
    ASSERT_EQ(p.writeString8(String8()), OK);
    EXPECT_EQ(Bytes(p), (std::vector<uint8_t>{0, 0, 0, 0, 0, 0, 0, 0}));

    // Zero bytes inside a String8 travel as bytes; the length says where it ends.
    p.freeData();
    ASSERT_EQ(p.writeString8(String8("a\0b", 3)), OK);
    EXPECT_EQ(Bytes(p), (std::vector<uint8_t>{3, 0, 0, 0, 'a', 0, 'b', 0}));

    // String16: the length counts UTF-16 units; the terminator is one zero unit.
    p.freeData();
    ASSERT_EQ(p.writeString16(String16("h\xc3\xa9")), OK);
    EXPECT_EQ(Bytes(p), (std::vector<uint8_t>{2, 0, 0, 0, 'h', 0, 0xe9, 0, 0, 0, 0, 0}));

    // Items after a string start on the next four-byte boundary and read back in order.
    p.freeData();
    p.writeString8(String8("abc"));
    p.writeInt32(-7);
    p.writeString8(String8("a\0b", 3));
    p.writeString16(String16("xyz"));
    p.writeUint32(0xfffffffeu);
    EXPECT_EQ(p.dataSize(), 8u + 4u + 8u + 12u + 4u);
    p.setDataPosition(0);
    EXPECT_EQ(Text(p.readString8()), "abc");
    EXPECT_EQ(p.readInt32(), -7);
    EXPECT_EQ(Text(p.readString8()), std::string("a\0b", 3));
    EXPECT_TRUE(p.readString16() == String16("xyz"));
    EXPECT_EQ(p.readUint32(), 0xfffffffeu);
    EXPECT_EQ(p.dataAvail(), 0u);
}

TEST(ParcelReads, RefuseBadLengthsWithoutReadingPastTheData) {
    struct Case {
        const char* what;
        std::vector<uint8_t> bytes;
        status_t expected;
    };
    const Case cases[] = {
        {"length -1", {0xff, 0xff, 0xff, 0xff, 'a', 0, 0, 0}, BAD_VALUE},
        {"length INT32_MIN", {0x00, 0x00, 0x00, 0x80, 'a', 0, 0, 0}, BAD_VALUE},
        {"length beyond the data", {100, 0, 0, 0, 'a', 'b', 'c', 0}, NOT_ENOUGH_DATA},
        {"length INT32_MAX", {0xff, 0xff, 0xff, 0x7f, 'a', 'b', 'c', 0}, NOT_ENOUGH_DATA},
        {"terminator missing at the end", {3, 0, 0, 0, 'a', 'b', 'c'}, NOT_ENOUGH_DATA},
        {"terminator is not zero", {3, 0, 0, 0, 'a', 'b', 'c', 'd'}, BAD_VALUE},
        {"padding missing", {4, 0, 0, 0, 'a', 'b', 'c', 'd', 0}, NOT_ENOUGH_DATA},
        {"length cut short", {3, 0}, NOT_ENOUGH_DATA},
        {"nothing", {}, NOT_ENOUGH_DATA},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Parcel p;
        Load(p, c.bytes);  // an exactly sized copy: an over-read is a sanitizer error
        String8 out("stale");
        EXPECT_EQ(p.readString8(&out), c.expected);
        EXPECT_TRUE(out.isEmpty());
        EXPECT_EQ(p.dataPosition(), 0u);  // a failed read consumes nothing
        EXPECT_TRUE(p.readString8().isEmpty());
    }
}

// --- served over the socket ----------------------------------------------------------------

constexpr char kName[] = "test.echo";

// A service that joins two String8 arguments, and a few codes to provoke the transport.
class EchoService : public BBinder {
public:
    enum : uint32_t {
        kJoin = IBinder::FIRST_CALL_TRANSACTION,  // a, b -> "a|b"
        kFail,                                    // writes a reply, returns BAD_TYPE
        kBlock,                                   // waits until Release(), replies "late"
        kHuge,                                    // a reply above the transport's cap
    };

    const String16& getInterfaceDescriptor() const override { return descriptor_; }

    status_t dump(int fd, const Vector<String16>& args) override {
        std::string text = std::to_string(args.size()) + " args:";
        for (size_t i = 0; i < args.size(); ++i) {
            text += " " + Text(String8(args[i]));
        }
        text += "\n";
        return write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size())
                   ? OK
                   : UNKNOWN_ERROR;
    }

    int Calls() const { return calls_.load(); }

    // Waits (real time) until a kBlock call is inside the service.
    bool WaitBlocked() {
        std::unique_lock<std::mutex> lock(gateLock_);
        return gate_.wait_for(lock, std::chrono::seconds(10), [this] { return blocked_; });
    }
    void Release() {
        std::lock_guard<std::mutex> lock(gateLock_);
        released_ = true;
        gate_.notify_all();
    }

protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        ++calls_;
        switch (code) {
            case kJoin: {
                String8 a;
                String8 b;
                if (data.readString8(&a) != OK || data.readString8(&b) != OK) {
                    return BAD_VALUE;
                }
                return reply->writeString8(S8(Text(a) + "|" + Text(b)));
            }
            case kFail:
                reply->writeString8(String8("not for the client"));
                return BAD_TYPE;
            case kBlock: {
                std::unique_lock<std::mutex> lock(gateLock_);
                blocked_ = true;
                gate_.notify_all();
                gate_.wait_for(lock, std::chrono::seconds(10), [this] { return released_; });
                return reply->writeString8(String8("late"));
            }
            case kHuge:
                return reply->writeString8(S8(std::string(BinderWire::kMaxPayload, 'x')));
            default:
                return BBinder::onTransact(code, data, reply, flags);
        }
    }

private:
    const String16 descriptor_{"test.echo"};
    std::atomic<int> calls_{0};
    std::mutex gateLock_;
    std::condition_variable gate_;
    bool blocked_ = false;   // guarded by gateLock_
    bool released_ = false;  // guarded by gateLock_
};

status_t Join(BinderClient& client, const std::string& a, const std::string& b, std::string* out) {
    Parcel data;
    Parcel reply;
    data.writeString8(S8(a));
    data.writeString8(S8(b));
    status_t status = client.Transact(EchoService::kJoin, data, &reply);
    if (out != nullptr) {
        *out = Text(reply.readString8());
    }
    return status;
}

status_t Ping(BinderClient& client) {
    Parcel data;
    Parcel reply;
    return client.Transact(IBinder::PING_TRANSACTION, data, &reply);
}

bool WaitUntil(const std::function<bool()>& done, int ms) {
    for (int waited = 0; !done(); waited += 10) {
        if (waited >= ms) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

// A socket that speaks the framing by hand, for requests no client would send.
class RawPeer {
public:
    explicit RawPeer(const std::string& path) {
        fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        connected_ = ConnectTo(fd_, path);
    }
    ~RawPeer() { Close(); }

    bool connected() const { return connected_; }
    int fd() const { return fd_; }
    void Close() {
        if (fd_ >= 0) {
            close(fd_);
            fd_ = -1;
        }
    }

    bool Send(const void* data, size_t len) {
        return send(fd_, data, len, MSG_NOSIGNAL) == static_cast<ssize_t>(len);
    }
    bool SendHeader(uint32_t magic, uint32_t code, uint32_t flags, uint32_t size) {
        BinderWire::RequestHeader h{magic, code, flags, size};
        return Send(&h, sizeof(h));
    }

    // What came back: a reply status (if a whole reply header came) and whether the server
    // then closed the connection. Waits at most `ms` for each.
    struct Answer {
        bool replied = false;
        int32_t status = 0;
        bool closed = false;
    };
    Answer Read(int ms) {
        Answer answer;
        BinderWire::ReplyHeader h{};
        if (BinderWire::RecvAll(fd_, &h, sizeof(h), BinderWire::NowMs() + ms, nullptr) ==
            BinderWire::RecvResult::kOk) {
            answer.replied = true;
            answer.status = h.status;
        }
        char extra;
        BinderWire::RecvResult rest =
            BinderWire::RecvAll(fd_, &extra, 1, BinderWire::NowMs() + ms, nullptr);
        answer.closed = rest == BinderWire::RecvResult::kClosed;
        return answer;
    }

private:
    int fd_ = -1;
    bool connected_ = false;
};

class BinderTest : public FakeDeviceTest {
protected:
    sp<EchoService> Serve(const char* name = kName) {
        sp<EchoService> service = sp<EchoService>::make();
        EXPECT_EQ(defaultServiceManager()->addService(String16(name), service), OK);
        ProcessState::self()->startThreadPool();
        return service;
    }

    std::unique_ptr<BinderClient> Client(const char* name = kName) {
        auto client = std::make_unique<BinderClient>(BinderWire::SocketPath(name));
        std::string error;
        EXPECT_TRUE(client->Connect(&error)) << error;
        return client;
    }
};

TEST_F(BinderTest, RoundTripCarriesString8ArgumentsAndReplies) {
    BinderClient early(BinderWire::SocketPath(kName));
    std::string error;
    EXPECT_FALSE(early.Connect(&error));
    EXPECT_FALSE(error.empty());
    Parcel nothing;
    EXPECT_EQ(early.Transact(IBinder::PING_TRANSACTION, nothing, nullptr), DEAD_OBJECT);

    sp<EchoService> service = Serve();
    auto client = Client();
    std::string out;
    EXPECT_EQ(Join(*client, "ichg_limit", "1500", &out), OK);
    EXPECT_EQ(out, "ichg_limit|1500");
    // Several transactions on one connection, with awkward contents.
    EXPECT_EQ(Join(*client, std::string("a\0b", 3), "", &out), OK);
    EXPECT_EQ(out, std::string("a\0b|", 4));
    EXPECT_EQ(Join(*client, "h\xc3\xa9", std::string(5000, 'z'), &out), OK);
    EXPECT_EQ(out, "h\xc3\xa9|" + std::string(5000, 'z'));

    // A failing status reaches the client and the reply written before it is dropped.
    Parcel data;
    Parcel reply;
    EXPECT_EQ(client->Transact(EchoService::kFail, data, &reply), BAD_TYPE);
    EXPECT_EQ(reply.dataSize(), 0u);
    EXPECT_STREQ(StatusName(BAD_TYPE), "BAD_TYPE");

    // A request the service cannot parse is the service's answer, not the transport's.
    data.writeString8(String8("only one"));
    EXPECT_EQ(client->Transact(EchoService::kJoin, data, &reply), BAD_VALUE);
    EXPECT_EQ(Join(*client, "still", "served", &out), OK);
    EXPECT_EQ(out, "still|served");
    EXPECT_EQ(service->Calls(), 6);
}

TEST_F(BinderTest, SocketIsMode0660AndAStaleOneIsReplaced) {
    // A socket file left behind by a server that is gone.
    dev.MakeDir("/dev/socket");
    std::string path = BinderWire::SocketPath(kName);
    {
        int stale = socket(AF_UNIX, SOCK_STREAM, 0);
        struct sockaddr_un addr {};
        addr.sun_family = AF_UNIX;
        snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path.c_str());
        ASSERT_EQ(bind(stale, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
        close(stale);
    }
    ASSERT_TRUE(dev.Exists("/dev/socket/test.echo"));
    mode_t old = umask(0);  // the mode must not depend on the umask
    sp<EchoService> service = Serve();
    umask(old);

    struct stat st {};
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_TRUE(S_ISSOCK(st.st_mode));
    EXPECT_EQ(st.st_mode & 07777, 0660u);
    auto client = Client();
    std::string out;
    EXPECT_EQ(Join(*client, "x", "y", &out), OK);

    // A live server keeps its name, in this process or another.
    EXPECT_EQ(defaultServiceManager()->addService(String16(kName), sp<EchoService>::make()),
              ALREADY_EXISTS);
    EXPECT_EQ(Join(*client, "x", "y", &out), OK);
    EXPECT_EQ(out, "x|y");
    // Something that is not a socket is left alone.
    dev.Write("/dev/socket/test.file", "keep");
    EXPECT_EQ(defaultServiceManager()->addService(String16("test.file"), service), ALREADY_EXISTS);
    EXPECT_EQ(dev.Read("/dev/socket/test.file"), "keep");

    for (const char* bad : {"", "a/b", ".", ".."}) {
        EXPECT_EQ(defaultServiceManager()->addService(String16(bad), service), BAD_VALUE) << bad;
    }
    EXPECT_EQ(defaultServiceManager()->addService(String16("test.null"), nullptr), BAD_VALUE);
    EXPECT_FALSE(dev.Exists("/dev/socket/test.null"));

    // A service added after the pool started is served too.
    ASSERT_EQ(defaultServiceManager()->addService(String16("test.late"), sp<EchoService>::make()),
              OK);
    auto late = Client("test.late");
    EXPECT_EQ(Join(*late, "late", "too", &out), OK);
    EXPECT_EQ(out, "late|too");
}

TEST_F(BinderTest, DefaultTransactionsAnswerAsOnThePlatform) {
    sp<EchoService> service = Serve();
    auto client = Client();
    Parcel none;
    Parcel reply;
    EXPECT_EQ(client->Transact(IBinder::INTERFACE_TRANSACTION, none, &reply), OK);
    EXPECT_TRUE(reply.readString16() == String16("test.echo"));
    EXPECT_EQ(client->Transact(IBinder::PING_TRANSACTION, none, &reply), OK);
    EXPECT_EQ(client->Transact(0x77, none, &reply), UNKNOWN_TRANSACTION);
    EXPECT_EQ(client->Transact(IBinder::SHELL_COMMAND_TRANSACTION, none, &reply),
              UNKNOWN_TRANSACTION);

    // Dump writes to the descriptor sent with the request; the server closes its copy.
    int pipeFds[2];
    ASSERT_EQ(pipe2(pipeFds, O_CLOEXEC), 0);
    Parcel args;
    args.writeInt32(2);
    args.writeString16(String16("-a"));
    args.writeString16(String16("x"));
    EXPECT_EQ(client->Transact(IBinder::DUMP_TRANSACTION, args, &reply, 0, pipeFds[1]), OK);
    close(pipeFds[1]);
    std::string dumped;
    bool ended = false;  // end of file: no copy of the write end is left open
    char buf[64];
    struct pollfd pfd = {pipeFds[0], POLLIN, 0};
    while (!ended && poll(&pfd, 1, 10000) == 1) {
        ssize_t n = read(pipeFds[0], buf, sizeof(buf));
        ended = n <= 0;
        dumped.append(buf, n > 0 ? static_cast<size_t>(n) : 0);
    }
    close(pipeFds[0]);
    EXPECT_EQ(dumped, "2 args: -a x\n");
    EXPECT_TRUE(ended) << "the server kept the descriptor open";
    EXPECT_EQ(client->Transact(IBinder::DUMP_TRANSACTION, args, &reply), BAD_VALUE);

    // One-way: run, not answered, and the next reply on the connection is the next one's.
    Parcel oneway;
    oneway.writeString8(String8("one"));
    oneway.writeString8(String8("way"));
    EXPECT_EQ(client->Transact(EchoService::kJoin, oneway, nullptr, IBinder::FLAG_ONEWAY), OK);
    std::string out;
    EXPECT_EQ(Join(*client, "two", "way", &out), OK);
    EXPECT_EQ(out, "two|way");
    // Ping never reaches onTransact; the others (one-way included) did.
    EXPECT_EQ(service->Calls(), 7);

    // A plain BBinder: empty descriptor, default answers.
    ASSERT_EQ(defaultServiceManager()->addService(String16("test.plain"), sp<BBinder>::make()), OK);
    auto plain = Client("test.plain");
    EXPECT_EQ(plain->Transact(IBinder::INTERFACE_TRANSACTION, none, &reply), OK);
    EXPECT_EQ(reply.readString16().size(), 0u);
    EXPECT_EQ(plain->Transact(IBinder::FIRST_CALL_TRANSACTION, none, &reply), UNKNOWN_TRANSACTION);
}

TEST_F(BinderTest, MalformedRequestsNeverReachTheService) {
    sp<EchoService> service = Serve();
    // A wrong magic, and a payload announced above the cap: refused and the connection closed.
    for (uint32_t magic : {0xdeadbeefu, BinderWire::kMagic}) {
        RawPeer peer(BinderWire::SocketPath(kName));
        ASSERT_TRUE(peer.connected());
        uint32_t size = magic == BinderWire::kMagic ? BinderWire::kMaxPayload + 1 : 0;
        ASSERT_TRUE(peer.SendHeader(magic, EchoService::kJoin, 0, size));
        RawPeer::Answer a = peer.Read(10000);
        EXPECT_TRUE(a.replied) << magic;
        EXPECT_EQ(a.status, BAD_VALUE) << magic;
        EXPECT_TRUE(a.closed) << magic;
    }
    EXPECT_EQ(service->Calls(), 0);

    // Exactly at the cap is fine; above it the client refuses without sending.
    auto client = Client();
    Parcel full;
    for (uint32_t i = 0; i < BinderWire::kMaxPayload / 4; ++i) {
        full.writeInt32(static_cast<int32_t>(i));
    }
    Parcel reply;
    EXPECT_EQ(client->Transact(0x55, full, &reply), UNKNOWN_TRANSACTION);
    EXPECT_EQ(service->Calls(), 1);
    full.writeInt32(0);
    EXPECT_EQ(client->Transact(0x55, full, &reply), FAILED_TRANSACTION);
    EXPECT_EQ(service->Calls(), 1);
    // A reply above the cap becomes FAILED_TRANSACTION; the connection stays usable.
    Parcel none;
    EXPECT_EQ(client->Transact(EchoService::kHuge, none, &reply), FAILED_TRANSACTION);
    EXPECT_EQ(reply.dataSize(), 0u);
    std::string out;
    EXPECT_EQ(Join(*client, "after", "huge", &out), OK);
    EXPECT_EQ(out, "after|huge");
}

TEST_F(BinderTest, IncompleteRequestIsRefusedAfterFiveSecondsWhileOthersAreServed) {
    sp<EchoService> service = Serve();
    RawPeer peer(BinderWire::SocketPath(kName));
    ASSERT_TRUE(peer.connected());
    int64_t start = BinderWire::NowMs();
    ASSERT_TRUE(peer.SendHeader(BinderWire::kMagic, EchoService::kJoin, 0, 8));
    ASSERT_TRUE(peer.Send("\0\0\0\0", 4));  // half the announced payload

    auto client = Client();
    std::string out;
    EXPECT_EQ(Join(*client, "meanwhile", "served", &out), OK);
    EXPECT_EQ(out, "meanwhile|served");

    RawPeer::Answer a = peer.Read(15000);
    int64_t waited = BinderWire::NowMs() - start;
    EXPECT_TRUE(a.replied);
    EXPECT_EQ(a.status, BAD_VALUE);
    EXPECT_TRUE(a.closed);
    EXPECT_GE(waited, BinderWire::kRequestTimeoutMs - 100);
    EXPECT_LT(waited, BinderWire::kRequestTimeoutMs + 4000);
    EXPECT_EQ(service->Calls(), 1);
}

TEST_F(BinderTest, ClientVanishingMidRequestOrMidReplyDisturbsNoOne) {
    sp<EchoService> service = Serve();
    std::string path = BinderWire::SocketPath(kName);
    auto steady = Client();
    std::string out;
    int served = 0;
    auto check = [&](const char* when) {
        EXPECT_EQ(Join(*steady, when, std::to_string(served), &out), OK) << when;
        EXPECT_EQ(out, std::string(when) + "|" + std::to_string(served)) << when;
        ++served;
    };
    check("start");
    {
        RawPeer peer(path);  // half a header, then gone
        BinderWire::RequestHeader h{BinderWire::kMagic, EchoService::kJoin, 0, 16};
        ASSERT_TRUE(peer.Send(&h, 6));
    }
    check("after half a header");
    {
        RawPeer peer(path);  // whole header, part of the payload, then gone
        ASSERT_TRUE(peer.SendHeader(BinderWire::kMagic, EchoService::kJoin, 0, 100));
        ASSERT_TRUE(peer.Send("0123456789", 10));
    }
    check("after part of a payload");

    // A client that stops reading while its call runs: the reply goes to a dead end.
    RawPeer leaving(path);
    ASSERT_TRUE(leaving.SendHeader(BinderWire::kMagic, EchoService::kBlock, 0, 0));
    ASSERT_TRUE(service->WaitBlocked());
    check("while a call is blocked");
    ASSERT_EQ(shutdown(leaving.fd(), SHUT_RD), 0);
    service->Release();
    // The server's failed send ends that connection (without a SIGPIPE killing us).
    struct pollfd pfd = {leaving.fd(), POLLHUP, 0};
    ASSERT_EQ(poll(&pfd, 1, 10000), 1);
    EXPECT_NE(pfd.revents & POLLHUP, 0);
    check("after the reply was lost");
    EXPECT_EQ(service->Calls(), served + 1);  // the blocked call; the cut requests never ran
}

TEST_F(BinderTest, ConnectionsBeyondSixteenAreClosedAndTheRestServed) {
    sp<EchoService> service = Serve();
    std::vector<std::unique_ptr<BinderClient>> held;
    for (int i = 0; i < BinderWire::kMaxConnections; ++i) {
        held.push_back(Client());
        ASSERT_EQ(Ping(*held.back()), OK) << i;  // admitted: it holds a slot now
    }
    for (int i = 0; i < 2; ++i) {
        auto extra = Client();  // the kernel queues it; the server closes it at once
        EXPECT_EQ(Ping(*extra), DEAD_OBJECT);
    }
    EXPECT_EQ(dev.CountLogContaining("connections busy"), 1);  // once for the burst
    std::string out;
    for (auto& client : held) {
        EXPECT_EQ(Join(*client, "held", "on", &out), OK);
    }

    // A closed connection frees its slot.
    held.pop_back();
    std::unique_ptr<BinderClient> next;
    EXPECT_TRUE(WaitUntil(
        [&] {
            next = Client();
            return Ping(*next) == OK;
        },
        5000));
    EXPECT_EQ(Join(*next, "next", "in", &out), OK);
    // Full again: a new burst of refusals is logged anew.
    auto extra = Client();
    EXPECT_EQ(Ping(*extra), DEAD_OBJECT);
    EXPECT_EQ(dev.CountLogContaining("connections busy"), 2);
}

// Out of descriptors, accept() fails while the connection stays queued: the server must wait
// between tries (not spin on a socket that stays readable), log once, and serve the queued
// client as soon as descriptors are free again. (An accept() already blocked when the
// descriptors ran out holds a number, so the first connection may still get in; the second
// always waits.)
TEST_F(BinderTest, RunningOutOfDescriptorsCostsLittleIsLoggedOnceAndRecovers) {
    sp<EchoService> service = Serve();
    auto warm = Client();
    ASSERT_EQ(Ping(*warm), OK);  // the accepting thread is running

    int socks[2];
    for (int& s : socks) {
        s = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        ASSERT_GE(s, 0);
    }
    struct rlimit saved {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
    struct rlimit low = saved;
    low.rlim_cur = 64;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
    std::vector<int> fillers;
    for (int fd; (fd = dup(socks[0])) >= 0;) {
        fillers.push_back(fd);
    }
    ASSERT_EQ(errno, EMFILE);

    BinderWire::RequestHeader ping{BinderWire::kMagic, IBinder::PING_TRANSACTION, 0, 0};
    BinderWire::ReplyHeader reply{};
    for (int s : socks) {
        ASSERT_TRUE(ConnectTo(s, BinderWire::SocketPath(kName)));
        ASSERT_EQ(send(s, &ping, sizeof(ping), MSG_NOSIGNAL), static_cast<ssize_t>(sizeof(ping)));
    }
    EXPECT_TRUE(WaitUntil([&] { return dev.CountLogContaining("accept failed") > 0; }, 20000));

    // Over a window of real time the process (the failing accept loop included) stays nearly
    // idle: a loop retrying at once would use the whole window.
    struct timespec cpu0 {};
    struct timespec cpu1 {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &cpu0);
    int64_t wall0 = BinderWire::NowMs();
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &cpu1);
    int64_t wallMs = BinderWire::NowMs() - wall0;
    int64_t cpuMs = (cpu1.tv_sec - cpu0.tv_sec) * 1000 + (cpu1.tv_nsec - cpu0.tv_nsec) / 1000000;
    EXPECT_LT(cpuMs, wallMs / 5) << "cpu " << cpuMs << " ms in " << wallMs << " ms";
    EXPECT_EQ(dev.CountLogContaining("accept failed"), 1);
    struct pollfd early = {socks[1], POLLIN, 0};
    EXPECT_EQ(poll(&early, 1, 0), 0) << "served while out of descriptors?";

    for (int fd : fillers) {
        close(fd);
    }
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &saved), 0);
    int64_t freed = BinderWire::NowMs();
    for (int s : socks) {
        ASSERT_EQ(BinderWire::RecvAll(s, &reply, sizeof(reply), freed + 20000, nullptr),
                  BinderWire::RecvResult::kOk);
        EXPECT_EQ(reply.status, OK);
    }
    printf(
        "[ figures  ] out of descriptors: %lld ms cpu in %lld ms; served %lld ms after "
        "descriptors were freed\n",
        static_cast<long long>(cpuMs), static_cast<long long>(wallMs),
        static_cast<long long>(BinderWire::NowMs() - freed));
    for (int s : socks) {
        close(s);
    }
    EXPECT_EQ(dev.CountLogContaining("accepting again after"), 1);
    EXPECT_EQ(Ping(*warm), OK);
}

}  // namespace
