// A fake device for tests: a temporary $QUEN_ROOT that the code under test sees as "/",
// with helpers to lay out nodes, files and properties, and to read back what the daemon
// wrote (nodes, records, big-data lines, log lines).
//
// One FakeDevice per test process at a time: it sets QUEN_ROOT and installs the log sink in
// its constructor and removes both (and the tree) in its destructor. Log capture is
// thread-safe; the other helpers are for the test's main thread.
#pragma once

#include <gtest/gtest.h>
#include <json/json.h>

#include <mutex>
#include <string>
#include <vector>

// Parses JSON text a test wrote; text that does not parse fails the test.
inline Json::Value ParseJson(const std::string& text) {
    Json::Value v;
    EXPECT_TRUE(Json::Reader().parse(text, v)) << text;
    return v;
}

// The value of field `key` in a big-data event as BigData() returns it; null when absent.
inline Json::Value EventField(const Json::Value& event, const std::string& key) {
    for (const Json::Value& field : event["fields"]) {
        if (field["key"].asString() == key) {
            return field["value"];
        }
    }
    return Json::Value();
}

struct LogLine {
    int prio;  // 4 info, 6 error
    std::string text;
};

class FakeDevice {
public:
    FakeDevice();
    ~FakeDevice();
    FakeDevice(const FakeDevice&) = delete;
    FakeDevice& operator=(const FakeDevice&) = delete;

    const std::string& Root() const { return root_; }
    // Host path of a device path ("/sys/..." -> "<root>/sys/...").
    std::string HostPath(const std::string& devicePath) const { return root_ + devicePath; }

    // Writes a file (creating its parent directories), mode 0644.
    void Write(const std::string& devicePath, const std::string& content);
    std::string Read(const std::string& devicePath) const;
    bool Exists(const std::string& devicePath) const;
    // Removes a file or a whole directory tree.
    void Remove(const std::string& devicePath);
    void MakeDir(const std::string& devicePath);
    // Copies a directory tree from the source checkout (e.g. "examples/device") into the root.
    void CopyTree(const std::string& sourceDir);

    void SetProperty(const std::string& name, const std::string& value) {
        Write("/properties/" + name, value);
    }
    // The value as stored; empty string when unset.
    std::string Property(const std::string& name) const { return Read("/properties/" + name); }

    // The big-data events sent so far, one parsed JSON object per line.
    std::vector<Json::Value> BigData() const;

    std::vector<LogLine> Logs() const;
    // Number of log lines whose text equals `text` exactly (including its "\n").
    int CountLog(const std::string& text) const;
    bool HasLog(const std::string& text) const { return CountLog(text) > 0; }
    // Number of log lines containing `part`.
    int CountLogContaining(const std::string& part) const;

private:
    std::string root_;
    mutable std::mutex logLock_;  // guards logs_
    std::vector<LogLine> logs_;
};

// Test fixture owning one FakeDevice.
class FakeDeviceTest : public ::testing::Test {
protected:
    FakeDevice dev;
};
