// Kernel-node streams: DeviceStream opens its node lazily with open(2), keeps the fd for the
// object's life and closes it in the destructor; every failure is logged with the device
// path and the system error text. One open, one read or write and one close per object: no
// buffering. There is no seek, so a second read continues where the first ended; callers
// make a fresh reader for every sample.
//
// A reader of a node under "/sys/" borrows its thread's kept descriptor instead (NodeHandles)
// and reads with pread(2) from where its previous read ended, so a pass that samples the same
// nodes every time opens each of them once. A read that fails drops the kept descriptor; when
// the failure says the open file went stale (the node vanished and came back) the first read
// of a reader is tried once more on a fresh descriptor.
//
// Ownership: each object owns its own fd; kept ones belong to NodeHandles. Threads: an object
// is used by one thread only (the one that made it).
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <type_traits>

#include "core/soh_log.h"

class DeviceStream {
public:
    DeviceStream(const std::string& path, int flags);
    virtual ~DeviceStream();
    DeviceStream(const DeviceStream&) = delete;
    DeviceStream& operator=(const DeviceStream&) = delete;

    // Opens the node if it is not open yet; false (logged) when that fails. The next call
    // tries again.
    bool IsOpen();
    const std::string& Path() const { return path_; }

protected:
    // Failure lines of one path are damped while the failure repeats (1st, 2nd, 4th, ...
    // failure in a row; core/soh_fault_gate.h); the first success after a run logs once.
    enum class Op { kOpen, kRead, kWrite };
    void Failed(Op op, ssize_t n);  // n: what open/read/write returned; errno is kept
    void Succeeded();
    static void LogFailure(Op op, const char* path, int len, int err, uint64_t count);

    // Up to len bytes into buf from where the previous read ended; what read(2) returns, with a
    // failure logged.
    ssize_t ReadNext(void* buf, size_t len);

    int fd_ = -1;

private:
    // The descriptor to read from now; -1 (logged) when the node cannot be opened.
    int ReadFd();

    bool kept_;         // reads borrow the thread's kept descriptor
    off_t offset_ = 0;  // bytes read so far
    std::string path_;  // device path; mapped through the root only when opening
    int flags_;
};

class DeviceReader : public DeviceStream {
public:
    explicit DeviceReader(const std::string& path) : DeviceStream(path, O_RDONLY) {}

    // One read(2) of sizeof(T) bytes into *value; 0 only when exactly that many arrived.
    template <typename T>
    int Read(T& value) {
        static_assert(std::is_trivially_copyable<T>::value, "raw records only");
        const ssize_t n = ReadNext(&value, sizeof(T));
        if (n < 0) {
            return -1;
        }
        if (n != static_cast<ssize_t>(sizeof(T))) {
            LogReadFailure(n);
            return -1;
        }
        Succeeded();
        return 0;
    }

    // One read(2) of up to len bytes into buf; then buf[len - 1] = 0. Bytes after the data
    // are left as the caller prepared them (clear the buffer first). 0 or -1.
    int ReadRawStr(char* buf, unsigned len);

    // Reads up to 127 characters of text and parses a number from them with stream
    // extraction (leading blanks skipped, trailing text ignored). Returns 0 even when no
    // number could be parsed (value then keeps its previous content); -1 when the read fails.
    template <typename T>
    int ReadStrToT(T& value) {
        static_assert(std::is_arithmetic<T>::value, "numbers only");
        char buf[kTextMax];
        memset(buf, 0, sizeof(buf));
        if (ReadRawStr(buf, sizeof(buf)) != 0) {
            return -1;
        }
        T parsed{};
        if (ParsePlain(buf, parsed) || (TextStream(buf) >> parsed)) {
            value = parsed;
        }
        return 0;
    }

private:
    static constexpr unsigned kTextMax = 128;
    void LogReadFailure(ssize_t n);
    // A stream over `text`: one per thread, cleared and reused, because setting up a stream and
    // its locale costs more than the parse itself.
    static std::istringstream& TextStream(const char* text);
    // The usual node text ("1234", "-56", "3.75", then anything but an exponent) parsed without
    // a stream, to the value stream extraction gives. False, with value untouched, for any
    // other text (blanks first, "+", exponents, long or out-of-range numbers): the stream
    // decides those.
    static bool ParsePlain(const char* text, int& value);
    static bool ParsePlain(const char* text, unsigned& value);
    static bool ParsePlain(const char* text, float& value);
    template <typename T>
    static bool ParsePlain(const char*, T&) {
        return false;
    }
};

// Opens with O_TRUNC, as a shell's `echo >` does: sysfs ignores the truncation, and a plain file
// standing in for a node (the host's fake device tree) then holds exactly the last value written.
class DeviceWriter : public DeviceStream {
public:
    explicit DeviceWriter(const std::string& path) : DeviceStream(path, O_WRONLY | O_TRUNC) {}

    // Writes the bytes of a raw record (a char[2] writes the character and its terminator).
    // 0 only when every byte was written in one write(2).
    template <typename T>
    int Write(const T& value) {
        static_assert(std::is_trivially_copyable<T>::value && !std::is_pointer<T>::value,
                      "raw records only");
        return WriteBytes(&value, sizeof(T));
    }
    // Writes the characters of a text, no terminator.
    int Write(const std::string& text) { return WriteBytes(text.data(), text.size()); }

private:
    int WriteBytes(const void* data, size_t len);
};
