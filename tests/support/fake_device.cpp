#include "tests/support/fake_device.h"

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "platform/host/soh_log_sink.h"

namespace fs = std::filesystem;

FakeDevice::FakeDevice() {
    char tmpl[] = "/tmp/quen-test-XXXXXX";
    EXPECT_NE(mkdtemp(tmpl), nullptr);
    root_ = tmpl;
    setenv("QUEN_ROOT", root_.c_str(), 1);
    unsetenv("QUEN_LOG_FILE");
    SohLogSink::SetQuiet(getenv("QUEN_TEST_VERBOSE") == nullptr);
    SohLogSink::Set([this](int prio, const char*, const char* text) {
        std::lock_guard<std::mutex> lock(logLock_);
        logs_.push_back({prio, text});
    });
}

FakeDevice::~FakeDevice() {
    SohLogSink::Set(nullptr);
    if (getenv("QUEN_TEST_KEEP") == nullptr) {
        Remove("");
    }
}

void FakeDevice::Write(const std::string& devicePath, const std::string& content) {
    const std::string path = HostPath(devicePath);
    std::error_code ec;
    fs::create_directories(fs::path(path).parent_path(), ec);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    ASSERT_TRUE(out.good()) << "cannot write " << path;
}

std::string FakeDevice::Read(const std::string& devicePath) const {
    std::ifstream in(HostPath(devicePath), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool FakeDevice::Exists(const std::string& devicePath) const {
    std::error_code ec;
    return fs::exists(HostPath(devicePath), ec);
}

void FakeDevice::Remove(const std::string& devicePath) {
    std::error_code ec;
    fs::remove_all(HostPath(devicePath), ec);
}

void FakeDevice::MakeDir(const std::string& devicePath) {
    std::error_code ec;
    fs::create_directories(HostPath(devicePath), ec);
}

void FakeDevice::CopyTree(const std::string& sourceDir) {
    const std::string cmd = "cp -a '" QUEN_SOURCE_DIR "/" + sourceDir + "/.' '" + root_ + "/'";
    ASSERT_EQ(system(cmd.c_str()), 0) << cmd;
}

std::vector<Json::Value> FakeDevice::BigData() const {
    std::vector<Json::Value> events;
    std::istringstream in(Read("/bms/bigdata.jsonl"));
    for (std::string line; std::getline(in, line);) {
        events.emplace_back();
        std::istringstream(line) >> events.back();  // throws (fails the test) on a bad line
    }
    return events;
}

std::vector<LogLine> FakeDevice::Logs() const {
    std::lock_guard<std::mutex> lock(logLock_);
    return logs_;
}

int FakeDevice::CountLog(const std::string& text) const {
    std::vector<LogLine> l = Logs();
    return std::count_if(l.begin(), l.end(), [&](const LogLine& x) { return x.text == text; });
}

int FakeDevice::CountLogContaining(const std::string& part) const {
    std::vector<LogLine> l = Logs();
    auto has = [&](const LogLine& x) { return x.text.find(part) != std::string::npos; };
    return std::count_if(l.begin(), l.end(), has);
}
