#include "tests/support/fake_device.h"

#include <ftw.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "platform/host/soh_log_sink.h"

namespace {

int RemoveEntry(const char* path, const struct stat*, int, struct FTW*) {
    remove(path);
    return 0;
}

void MakeParents(const std::string& path) {
    for (size_t pos = 1; (pos = path.find('/', pos)) != std::string::npos; ++pos) {
        mkdir(path.substr(0, pos).c_str(), 0755);
    }
}

}  // namespace

std::string SourcePath(const std::string& relative) {
    return std::string(QUEN_SOURCE_DIR) + "/" + relative;
}

FakeDevice::FakeDevice() {
    char tmpl[] = "/tmp/quen-test-XXXXXX";
    char* dir = mkdtemp(tmpl);
    if (dir == nullptr) {
        ADD_FAILURE() << "mkdtemp failed";
        return;
    }
    root_ = dir;
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
    if (!root_.empty() && getenv("QUEN_TEST_KEEP") == nullptr) {
        nftw(root_.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS);
    }
}

std::string FakeDevice::HostPath(const std::string& devicePath) const {
    return root_ + devicePath;
}

void FakeDevice::Write(const std::string& devicePath, const std::string& content) {
    std::string path = HostPath(devicePath);
    MakeParents(path);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    ASSERT_TRUE(out.good()) << "cannot write " << path;
}

std::string FakeDevice::Read(const std::string& devicePath) const {
    std::ifstream in(HostPath(devicePath), std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

bool FakeDevice::Exists(const std::string& devicePath) const {
    return access(HostPath(devicePath).c_str(), F_OK) == 0;
}

void FakeDevice::Remove(const std::string& devicePath) {
    nftw(HostPath(devicePath).c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS);
}

void FakeDevice::MakeDir(const std::string& devicePath) {
    std::string path = HostPath(devicePath);
    MakeParents(path + "/");
}

void FakeDevice::CopyTree(const std::string& sourceDir) {
    std::string cmd = "cp -a '" + SourcePath(sourceDir) + "/.' '" + root_ + "/'";
    ASSERT_EQ(system(cmd.c_str()), 0) << cmd;
}

void FakeDevice::SetProperty(const std::string& name, const std::string& value) {
    Write("/properties/" + name, value);
}

std::string FakeDevice::Property(const std::string& name) const {
    std::string v = Read("/properties/" + name);
    if (!v.empty() && v.back() == '\n') {
        v.pop_back();
    }
    return v;
}

std::vector<Json::Value> FakeDevice::BigData() const {
    std::vector<Json::Value> events;
    std::istringstream in(Read("/bms/bigdata.jsonl"));
    std::string line;
    Json::CharReaderBuilder builder;
    while (std::getline(in, line)) {
        Json::Value v;
        std::string errs;
        std::istringstream ls(line);
        EXPECT_TRUE(Json::parseFromStream(builder, ls, &v, &errs)) << line << ": " << errs;
        events.push_back(v);
    }
    return events;
}

std::vector<LogLine> FakeDevice::Logs() const {
    std::lock_guard<std::mutex> lock(logLock_);
    return logs_;
}

int FakeDevice::CountLog(const std::string& text) const {
    std::lock_guard<std::mutex> lock(logLock_);
    int n = 0;
    for (const auto& l : logs_) {
        n += (l.text == text) ? 1 : 0;
    }
    return n;
}

int FakeDevice::CountLogContaining(const std::string& part) const {
    std::lock_guard<std::mutex> lock(logLock_);
    int n = 0;
    for (const auto& l : logs_) {
        n += (l.text.find(part) != std::string::npos) ? 1 : 0;
    }
    return n;
}

void FakeDevice::ClearLogs() {
    std::lock_guard<std::mutex> lock(logLock_);
    logs_.clear();
}
