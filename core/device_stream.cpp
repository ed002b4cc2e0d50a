#include "core/device_stream.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "core/node_handles.h"
#include "core/soh_fault_gate.h"
#include "platform/soh_root.h"

DeviceStream::DeviceStream(const std::string& path, int flags)
    : kept_(flags == O_RDONLY && NodeHandles::Keeps(path)), path_(path), flags_(flags) {}

DeviceStream::~DeviceStream() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

bool DeviceStream::IsOpen() {
    if (kept_) {
        return ReadFd() >= 0;
    }
    if (fd_ >= 0) {
        return true;
    }
    int fd = open(SohRoot::RootPath(path_).c_str(), flags_ | O_CLOEXEC);
    if (fd < 0) {
        Failed(Op::kOpen, -1);
        return false;
    }
    fd_ = fd;
    return true;
}

int DeviceStream::ReadFd() {
    if (!kept_) {
        return IsOpen() ? fd_ : -1;
    }
    const int fd = NodeHandles::Get(path_);
    if (fd < 0) {
        Failed(Op::kOpen, -1);
    }
    return fd;
}

ssize_t DeviceStream::ReadNext(void* buf, size_t len) {
    int fd = ReadFd();
    if (fd < 0) {
        return -1;
    }
    if (!kept_) {
        const ssize_t n = read(fd, buf, len);
        if (n < 0) {
            Failed(Op::kRead, n);
        }
        return n;
    }
    ssize_t n = pread(fd, buf, len, offset_);
    if (n < 0) {
        const int err = errno;
        NodeHandles::Drop(path_);
        // A descriptor opened before the node went away reads as gone even when the node is
        // back: the first read of this reader gets one fresh open.
        if (offset_ == 0 && (err == ENOENT || err == ENODEV || err == ESTALE || err == EBADF)) {
            fd = ReadFd();
            if (fd < 0) {
                return -1;
            }
            n = pread(fd, buf, len, 0);
            if (n < 0) {
                const int again = errno;
                NodeHandles::Drop(path_);
                errno = again;
            }
        } else {
            errno = err;
        }
        if (n < 0) {
            Failed(Op::kRead, n);
            return -1;
        }
    }
    offset_ += n;
    return n;
}

void DeviceStream::LogFailure(Op op, const char* path, int len, int err, uint64_t count) {
    // The first failure of a run keeps the plain message; later logged ones (2nd, 4th, 8th,
    // ...) say how many there were, so a node that stays broken costs a few lines a day.
    char more[48] = "";
    if (count > 1) {
        snprintf(more, sizeof(more), " (%llu times in a row)\n",
                 static_cast<unsigned long long>(count));
    }
    switch (op) {
        case Op::kOpen:
            SOH_LOGE("open file %s failed, error is %s%s", path, strerror(err),
                     count > 1 ? more : "\n");
            break;
        case Op::kRead:
            SOH_LOGE("read file %s len %d failed, error is %s%s", path, len, strerror(err), more);
            break;
        case Op::kWrite:
            SOH_LOGE("write file %s len %d failed, error is %s%s", path, len, strerror(err), more);
            break;
    }
}

void DeviceStream::Succeeded() {
    const uint64_t ended = SohFaultGate::Ok(path_);
    if (ended > 0) {
        SOH_LOGE("file %s works again after %llu failures\n", path_.c_str(),
                 static_cast<unsigned long long>(ended));
    }
}

void DeviceStream::Failed(Op op, ssize_t n) {
    const int err = errno;
    uint64_t count = 0;
    if (SohFaultGate::Fail(path_, &count)) {
        LogFailure(op, path_.c_str(), static_cast<int>(n), err, count);
    }
}

void DeviceReader::LogReadFailure(ssize_t n) {
    Failed(Op::kRead, n);
}

std::istringstream& DeviceReader::TextStream(const char* text) {
    thread_local std::istringstream in;
    in.clear();
    in.str(text);
    return in;
}

namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Up to 9 decimal digits (never overflowing 32 bits) at text; the count of digits, 0 when
// there are none or more than 9.
int PlainDigits(const char* text, uint32_t& value) {
    int n = 0;
    uint32_t v = 0;
    for (; IsDigit(text[n]); ++n) {
        if (n == 9) {
            return 0;
        }
        v = v * 10 + static_cast<uint32_t>(text[n] - '0');
    }
    value = v;
    return n;
}

}  // namespace

bool DeviceReader::ParsePlain(const char* text, unsigned& value) {
    uint32_t v = 0;
    if (PlainDigits(text, v) == 0) {
        return false;
    }
    value = v;
    return true;
}

bool DeviceReader::ParsePlain(const char* text, int& value) {
    const bool negative = text[0] == '-';
    uint32_t v = 0;
    if (PlainDigits(text + (negative ? 1 : 0), v) == 0) {
        return false;
    }
    value = negative ? -static_cast<int>(v) : static_cast<int>(v);
    return true;
}

bool DeviceReader::ParsePlain(const char* text, float& value) {
    // The stream collects "[-]digits[.digits]" and converts it with strtof; the same text is
    // handed to strtof here.
    char number[32];
    size_t n = 0;
    size_t i = 0;
    if (text[i] == '-') {
        number[n++] = text[i++];
    }
    if (!IsDigit(text[i])) {
        return false;
    }
    bool point = false;
    for (; IsDigit(text[i]) || (text[i] == '.' && !point); ++i) {
        if (n + 1 == sizeof(number)) {
            return false;
        }
        point = point || text[i] == '.';
        number[n++] = text[i];
    }
    if (text[i] == 'e' || text[i] == 'E') {
        return false;
    }
    number[n] = '\0';
    char* end = nullptr;
    const float v = strtof(number, &end);
    if (end != number + n || !std::isfinite(v)) {
        return false;
    }
    value = v;
    return true;
}

int DeviceReader::ReadRawStr(char* buf, unsigned len) {
    if (buf == nullptr || len == 0) {
        return -1;
    }
    if (ReadNext(buf, len) < 0) {
        return -1;
    }
    Succeeded();
    buf[len - 1] = '\0';
    return 0;
}

int DeviceWriter::WriteBytes(const void* data, size_t len) {
    if (!IsOpen()) {
        return -1;
    }
    ssize_t n = write(fd_, data, len);
    if (n != static_cast<ssize_t>(len)) {
        Failed(Op::kWrite, n);
        return -1;
    }
    SohRoot::Wrote(Path());
    Succeeded();
    return 0;
}
