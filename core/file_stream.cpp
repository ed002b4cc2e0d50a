#include "core/file_stream.h"

#include "core/soh_log.h"
#include "platform/soh_root.h"

FileStream::FileStream(const std::string& path, unsigned mode) : path_(path), mode_(mode) {
    stream_.open(SohRoot::RootPath(path_), static_cast<std::ios_base::openmode>(mode_));
}

FileStream::~FileStream() {
    if (stream_.is_open()) {
        stream_.close();
    }
}

bool FileStream::IsOpen() {
    if (stream_.is_open()) {
        return true;
    }
    stream_.open(SohRoot::RootPath(path_), static_cast<std::ios_base::openmode>(mode_));
    if (stream_.is_open()) {
        stream_.clear();
        return true;
    }
    SOH_LOGE("open file %s failed\n", path_.c_str());
    return false;
}

uint32_t FileStream::Size() {
    if (!IsOpen()) {
        return 0xFFFFFFFFu;
    }
    stream_.clear();
    stream_.seekg(0, std::ios::end);
    std::streamoff end = stream_.tellg();
    stream_.seekg(0, std::ios::beg);
    return static_cast<uint32_t>(static_cast<uint64_t>(end < 0 ? 0 : end) & 0xFFFFFFFFu);
}
