#include "core/device_stream.h"

#include "platform/soh_root.h"

DeviceStream::~DeviceStream() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

bool DeviceStream::IsOpen() {
    if (fd_ >= 0) {
        return true;
    }
    int fd = open(SohRoot::RootPath(path_).c_str(), flags_ | O_CLOEXEC);
    if (fd < 0) {
        SOH_LOGE("open file %s failed, error is %s\n", path_.c_str(), strerror(errno));
        return false;
    }
    fd_ = fd;
    return true;
}

void DeviceReader::LogReadFailure(ssize_t n) {
    SOH_LOGE("read file %s len %d failed, error is %s", Path().c_str(), static_cast<int>(n),
             strerror(errno));
}

std::istringstream& DeviceReader::TextStream(const char* text) {
    thread_local std::istringstream in;
    in.clear();
    in.str(text);
    return in;
}

int DeviceReader::ReadRawStr(char* buf, unsigned len) {
    if (fd_ < 0 && !IsOpen()) {
        return -1;
    }
    if (buf == nullptr || len == 0) {
        return -1;
    }
    ssize_t n = read(fd_, buf, len);
    if (n < 0) {
        LogReadFailure(n);
        return -1;
    }
    buf[len - 1] = '\0';
    return 0;
}

int DeviceWriter::WriteBytes(const void* data, size_t len) {
    if (!IsOpen()) {
        return -1;
    }
    ssize_t n = write(fd_, data, len);
    if (n != static_cast<ssize_t>(len)) {
        SOH_LOGE("write file %s len %d failed, error is %s", Path().c_str(), static_cast<int>(n),
                 strerror(errno));
        return -1;
    }
    return 0;
}
