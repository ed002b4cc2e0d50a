#include "fuzz/fuzz_device.h"

#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "core/soh_configure.h"
#include "core/soh_estimator.h"
#include "core/soh_log.h"
#include "daemon/soh_declare.h"
#include "eis/eis_nodes.h"
#include "platform/host/soh_clock_test.h"
#include "platform/host/soh_log_sink.h"

namespace fs = std::filesystem;

namespace FuzzDevice {
namespace {

std::string& Root() {
    static std::string* root = new std::string;  // kept for the exit handler
    return *root;
}

void RemoveRoot() {
    std::error_code ec;
    fs::remove_all(Root(), ec);
}

std::string TempBase() {
    if (const char* dir = getenv("QUEN_FUZZ_TMP"); dir != nullptr && dir[0] != '\0') {
        return dir;
    }
    if (access("/dev/shm", W_OK) == 0) {
        return "/dev/shm";
    }
    const char* tmp = getenv("TMPDIR");
    return tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp";
}

}  // namespace

void Setup() {
    static bool done = false;
    if (done) {
        return;
    }
    done = true;
    std::string pattern = TempBase() + "/quen-fuzz-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        perror("fuzz: mkdtemp");
        abort();
    }
    Root() = pattern;
    std::error_code ec;
    fs::copy(QUEN_SOURCE_DIR "/examples/device", Root(), fs::copy_options::recursive, ec);
    if (ec) {
        fprintf(stderr, "fuzz: cannot copy the sample device: %s\n", ec.message().c_str());
        abort();
    }
    atexit(RemoveRoot);
    setenv("QUEN_ROOT", Root().c_str(), 1);
    unsetenv("QUEN_LOG_FILE");
    setenv("TZ", "UTC", 1);
    tzset();
    SohLogSink::SetQuiet(getenv("QUEN_FUZZ_VERBOSE") == nullptr);
    SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
    SohClockTest::SetManual(kStartSeconds * kNsPerSecond);
    SOHConfigure::GetRootConfigure();
}

void DeclareAll() {
    DeclearEstimators();
    DeclearProtectors();
}

std::string HostPath(const std::string& devicePath) {
    return Root() + devicePath;
}

void Write(const std::string& devicePath, const std::string& bytes) {
    const std::string path = HostPath(devicePath);
    std::error_code ec;
    fs::create_directories(fs::path(path).parent_path(), ec);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out.good()) {
        fprintf(stderr, "fuzz: cannot write %s\n", path.c_str());
        abort();
    }
}

void Write(const std::string& devicePath, const uint8_t* data, size_t size) {
    Write(devicePath, std::string(reinterpret_cast<const char*>(data), size));
}

void Remove(const std::string& devicePath) {
    std::error_code ec;
    fs::remove(HostPath(devicePath), ec);
}

void SetTime(int64_t offsetSeconds) {
    SohClockTest::SetWall((kStartSeconds + offsetSeconds) * kNsPerSecond);
}

void ForgetAppends() {
    Remove("/bms/bigdata.jsonl");
    Remove(EisNodes::kAcrLogFile);
    Remove(EisNodes::kDcrLogFile);
}

const Json::Value& SampleSection(const std::string& name) {
    const Json::Value& estimators = SOHConfigure::GetEstimatorsConfigure();
    return estimators.isObject() ? estimators[name] : Json::Value::nullSingleton();
}

bool ParseAsConfig(const std::string& text, Json::Value& root) {
    static const char* const kScratch = "/data/fuzz/section.json";
    Write(kScratch, text);
    return SOHConfigure::ParseJsonFile(kScratch, root) == 0;
}

}  // namespace FuzzDevice

uint8_t FuzzInput::Byte() {
    return pos_ < size_ ? data_[pos_++] : 0;
}

uint32_t FuzzInput::Word() {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) {
        v |= static_cast<uint32_t>(Byte()) << (8 * i);
    }
    return v;
}

std::string FuzzInput::CString() {
    size_t start = pos_;
    while (pos_ < size_ && data_[pos_] != 0) {
        ++pos_;
    }
    std::string out(reinterpret_cast<const char*>(data_ + start), pos_ - start);
    if (pos_ < size_) {
        ++pos_;  // the NUL
    }
    return out;
}

std::string FuzzInput::Rest() {
    std::string out(reinterpret_cast<const char*>(data_ + pos_), size_ - pos_);
    pos_ = size_;
    return out;
}
