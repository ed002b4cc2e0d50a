// Writing a dump to the descriptor that came with the dump transaction.
//
// The descriptor belongs to the transport (it closes it after the call) and may be a file, a
// pipe or a socket of any client. A client that stops reading must neither stall the serving
// thread for ever nor kill the daemon: SIGPIPE is blocked on the calling thread for the
// duration of the write (a SIGPIPE raised by it is consumed), and each chunk waits at most
// kWriteTimeoutMs of real time for the descriptor to take it. Real time on purpose: this
// guards the transport, not the daemon's logic, like the transport's own time-outs.
//
// Threads: no shared state; callable from several threads at once (each on its own fd).
#pragma once

#include <utils/Errors.h>

#include <string>

namespace DumpOutput {

constexpr int kWriteTimeoutMs = 5000;

// Writes all of `text` to `fd`. OK, or a negative errno status (-ETIMEDOUT, -EPIPE, ...).
android::status_t Write(int fd, const std::string& text);

}  // namespace DumpOutput
