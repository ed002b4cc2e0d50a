// File helpers for data files (records, logs, directories). Paths are device paths; each
// helper maps them through the root. Persistent records are replaced atomically: the data
// goes to a temporary file in the same directory with the final mode, is flushed to storage,
// then renamed over the old file, so a crash leaves either the old or the new record.
//
// The daemon's own data lives under /log and /splash2. Nothing there is ever a symbolic link
// the daemon made, so one found there was planted: ReadAll refuses a data path with a link
// at any level below the top directory, and WriteAtomic refuses one whose directories are
// links, and replaces a linked file by a real one rather than writing through it. Both log
// the refusal with the device path. ReadAll reads regular files only (a FIFO or device put
// in a file's place would block or never end).
//
// Threads: no shared state; callers serialise writers of one file.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>

namespace SohFile {

// access(F_OK).
bool Exists(const std::string& path);
// stat(2); -1 with errno set on failure.
int Stat(const std::string& path, struct stat& st);
// mkdir(2); -1 with errno set on failure.
int MakeDir(const std::string& path, mode_t mode);
// unlink(2); -1 with errno set on failure.
int Remove(const std::string& path);
// rename(2) of two device paths; -1 with errno set on failure.
int Rename(const std::string& from, const std::string& to);
// Reads the whole file (at most maxBytes). False (errno set) when it cannot be opened or
// read, is not a regular file, is larger than maxBytes, or is a refused link (see above).
bool ReadAll(const std::string& path, std::string& out, size_t maxBytes = 16u << 20);
// Replaces the file with `data` atomically (see above). False (errno set) on failure; the
// old file is then untouched and no temporary file is left behind (ENOSPC, EMFILE, a
// directory that is a link: all leave the old file as it was), logged as
// "save <path> failed, error is <reason>" beside the caller's own message. *openFailed (when given)
// tells whether the failure was the creation of the temporary file.
bool WriteAtomic(const std::string& path, const std::string& data, mode_t mode = 0660,
                 bool* openFailed = nullptr);

}  // namespace SohFile
