// Helpers shared by the protector tests: a do-nothing estimator that drives protectors by
// name, node taps that show every write a node received, and the limit records.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <initializer_list>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "core/soh_configure.h"
#include "core/soh_estimator.h"
#include "core/soh_log.h"
#include "tests/support/fake_device.h"

// An estimator without a monitor; the test calls NotifyOne/NotifyStrategy on its behalf.
class FakeEstimator : public SOHEstimator {
public:
    FakeEstimator(const std::string& name, std::initializer_list<SOHProtector*> protectors)
        : SOHEstimator(name) {
        for (SOHProtector* p : protectors) {
            RegisterSafeProtector(p);
        }
    }
    void StartMonitor() override {}
};

// Replaces a node with a FIFO that the tap holds open for reading, so that every write the
// node receives can be read back in order. The lines carry no newline, so consecutive writes
// run together ("quen lvc 40quen sc 40"). Opening a FIFO read-write never blocks on Linux, and
// keeps the writers' opens from blocking.
class NodeTap {
public:
    NodeTap(FakeDevice& dev, const std::string& node) {
        dev.Write(node, "");  // creates the parent directories
        dev.Remove(node);
        EXPECT_EQ(mkfifo(dev.HostPath(node).c_str(), 0644), 0) << node;
        fd_ = open(dev.HostPath(node).c_str(), O_RDWR | O_NONBLOCK);
    }
    ~NodeTap() { close(fd_); }

    // Everything written since the last call.
    std::string Take() {
        std::string out;
        char buf[256];
        for (ssize_t n; (n = read(fd_, buf, sizeof(buf))) > 0;) {
            out.append(buf, static_cast<size_t>(n));
        }
        return out;
    }

private:
    int fd_ = -1;
};

// One demand of an estimator and what the watched nodes received because of it.
using Step = std::tuple<FakeEstimator*, double, std::string>;

// Sends each step's demand to `protector` and compares `taken()` with what the step expects.
template <typename Taken>
void ExpectSteps(const std::string& protector, const std::vector<Step>& steps, Taken taken) {
    for (const auto& [estimator, demand, written] : steps) {
        estimator->NotifyOne(protector, demand);
        EXPECT_EQ(taken(), written) << estimator->GetName() << " demands " << demand;
    }
}

// The limit record (source, value) of `protector`; ("<none>", "") when there is none.
using LimitRecord = std::pair<std::string, std::string>;
inline LimitRecord RecordOf(const std::string& protector) {
    LimitRecord r;
    if (SOHConfigure::GetLimitRecord(protector, r.first, r.second) != 0) {
        r.first = "<none>";
    }
    return r;
}

// A fake device with the parameter store's directory and information logging on.
class ProtectorTest : public FakeDeviceTest {
protected:
    void SetUp() override {
        dev.MakeDir("/log/soh");
        SOHLog::Instance().SetLogLevel(LOG_LEVEL_INFO);
    }
};
