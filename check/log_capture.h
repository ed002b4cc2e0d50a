// LogCapture: collects the error-level lines the daemon's own code logs while a check runs,
// so that a configuration problem can be reported with the parser's own words.
//
// While an instance lives it owns the process's log sink and keeps the copy to standard error
// quiet; destruction restores both. Threads: the checker is single-threaded; the sink takes a
// lock all the same, because parsers may log from helper code on any thread.
#pragma once

#include <mutex>
#include <string>
#include <vector>

class LogCapture {
public:
    // `withInfo`: also keep info-level lines (the log level is raised while the capture lives).
    explicit LogCapture(bool withInfo = false);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // Lines kept since the last Take(), without their trailing newline; clears them.
    std::vector<std::string> Take();

private:
    std::mutex lock_;
    std::vector<std::string> lines_;  // guarded by lock_
    int savedLevel_;
};
