// In-process capture of the host log, for tests.
//
// A sink sees every message passed to __android_log_write, after the line has been
// written to standard error (and $QUEN_LOG_FILE). Install before starting threads that log;
// the sink itself must be thread-safe.
#pragma once

#include <functional>

namespace SohLogSink {

using Sink = std::function<void(int prio, const char* tag, const char* text)>;

// Installs `sink` (an empty function removes it).
void Set(Sink sink);
// Switches the copy to standard error off (tests that capture lines keep their output short).
void SetQuiet(bool quiet);

}  // namespace SohLogSink
