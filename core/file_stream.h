// FileStream: a standard file stream on a data file, opened in the constructor with the
// given std::ios_base open-mode bits (held as unsigned). Users read and write through
// Stream(). Failures to open are silent in the constructor and logged by IsOpen/Size.
//
// Ownership: owns its stream, closed in the destructor. Threads: one thread per object.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>

class FileStream {
public:
    FileStream(const std::string& path, unsigned mode);
    virtual ~FileStream();
    FileStream(const FileStream&) = delete;
    FileStream& operator=(const FileStream&) = delete;

    // True if open; otherwise reopens with the stored mode ("open file %s failed\n" when
    // that fails too).
    bool IsOpen();
    // Length of the file in bytes (low 32 bits), 0xFFFFFFFF when it cannot be opened. The
    // stream is left positioned at the beginning.
    uint32_t Size();

    std::fstream& Stream() { return stream_; }
    const std::string& Path() const { return path_; }

private:
    std::string path_;  // device path; mapped through the root when opening
    std::fstream stream_;
    unsigned mode_;
};

class FileReader : public FileStream {
public:
    FileReader(const std::string& path, unsigned mode) : FileStream(path, mode) {}
};
