#include "basp/basp_estimator.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "basp/basp_nodes.h"
#include "core/soh_backoff.h"
#include "core/soh_configure.h"
#include "core/soh_enviroment.h"
#include "core/soh_log.h"
#include "platform/soh_clock.h"
#include "platform/soh_root.h"

void BaspEstimator::StartMonitor() {
    if (!CanStartMonitor("")) {
        return;  // scheme closed
    }
    if (!SOHEnviroment::IsSohSubSysEnable(kBoardKey)) {
        SOH_LOGI("the board config disable basp\n");
        return;
    }
    RunMonitorThread([this] { Monitor(); });
}

void BaspEstimator::StopMonitor() {
    Notify(kNeutralDcVolt, kNeutralNonDcVolt, kNeutralDcCur, kNeutralNonDcCur);
}

void BaspEstimator::Monitor() {
    SOH_LOGI("in basp monitor\n");
    if (Select() == -1) {
        SOH_LOGE("battery select error\n");
    }
    StopMonitor();
}

int BaspEstimator::CreatePollfd(struct pollfd& pfd) {
    pfd.fd = open(SohRoot::RootPath(BaspNodes::kAgingData).c_str(), O_RDONLY | O_CLOEXEC);
    if (pfd.fd < 0) {
        SOH_LOGE("open aging data file %s failed\n", BaspNodes::kAgingData);
        return -1;
    }
    pfd.events = POLLPRI | POLLERR;
    pfd.revents = 0;
    return 0;
}

int BaspEstimator::WaitEvent(struct pollfd& pfd) {
    return SohClock::Poll(&pfd, 1, -1);
}

int BaspEstimator::Select() {
    struct pollfd pfd {};
    if (CreatePollfd(pfd) != 0) {
        return -1;
    }
    ProcEvents(pfd.fd);  // the record that is there already
    SohBackoff backoff;
    for (;;) {
        if (pfd.fd >= 0) {
            pfd.revents = 0;
            const int rc = WaitEvent(pfd);
            const int err = errno;
            if (SOHConfigure::IsSchemeClosed(GetName())) {
                SOH_LOGE("basp has closed by app\n");
                close(pfd.fd);
                return 0;
            }
            if (rc < 0 && err == EINTR) {
                continue;  // a signal is not an event
            }
            if (rc < 0) {
                SOH_LOGE("poll fds %s in select\n", strerror(err));
                close(pfd.fd);
                return -1;
            }
            // POLLERR comes with every sysfs POLLPRI: only a wake-up without a whole record
            // (hang-up, invalid descriptor, a read that fails or comes short) is a fault.
            if ((pfd.revents & POLLPRI) != 0 && ProcEvents(pfd.fd, !backoff.Failing())) {
                Recovered(backoff);
                continue;
            }
            if (backoff.Fail()) {
                SOH_LOGE(
                    "basp: wake-up %x brought no aging record (%llu times), retrying in %lld s\n",
                    static_cast<unsigned>(pfd.revents),
                    static_cast<unsigned long long>(backoff.Failures()), backoff.StepSeconds());
            }
            close(pfd.fd);  // a dead descriptor may never recover: open the node afresh
            pfd.fd = -1;
        } else if (backoff.Fail()) {
            SOH_LOGE("basp: %s cannot be opened: %s (%llu times), retrying in %lld s\n",
                     BaspNodes::kAgingData, strerror(errno),
                     static_cast<unsigned long long>(backoff.Failures()), backoff.StepSeconds());
        }
        backoff.Wait();
        if (SOHConfigure::IsSchemeClosed(GetName())) {
            SOH_LOGE("basp has closed by app\n");
            return 0;
        }
        pfd.fd = open(SohRoot::RootPath(BaspNodes::kAgingData).c_str(), O_RDONLY | O_CLOEXEC);
        pfd.events = POLLPRI | POLLERR;
        // The record there now may be one the fault hid; a failed read waits for the next event.
        if (pfd.fd >= 0 && ProcEvents(pfd.fd, false)) {
            Recovered(backoff);
        }
    }
}

void BaspEstimator::Recovered(SohBackoff& backoff) {
    const uint64_t failures = backoff.Reset();
    if (failures > 0) {
        SOH_LOGE("basp: aging records readable again after %llu failures\n",
                 static_cast<unsigned long long>(failures));
    }
}

bool BaspEstimator::ProcEvents(int fd, bool logFailure) {
    BaspBattery::BatteryAgingData data{};
    // Attribute nodes deliver a fresh record only when read from the start.
    const ssize_t n = lseek(fd, 0, SEEK_SET) == 0 ? read(fd, &data, sizeof(data)) : -1;
    if (n != static_cast<ssize_t>(sizeof(data))) {
        if (logFailure) {
            SOH_LOGE("read aging data failed and size is %d\n", static_cast<int>(n));
        }
        return false;
    }
    std::vector<std::unique_ptr<BaspBattery>> batterys;
    if (InitBatterys(batterys) <= 0) {
        SOH_LOGE("init batterys failed\n");
        return true;  // the record was read: configuration faults are not the node's
    }
    for (auto& battery : batterys) {
        battery->Update(data);
    }
    UpdateLimitValue(batterys);
    return true;
}

int BaspEstimator::InitBatterys(std::vector<std::unique_ptr<BaspBattery>>& batterys) {
    const Json::Value& root = *GetJsonValue();
    if (root.isNull()) {
        SOH_LOGE("basp configure is empty\n");
        return -1;
    }
    if (!root.isObject() || !root["Battery"].isArray()) {
        SOH_LOGE("root configure not have Battery\n");
        return -1;
    }
    // The first entry that applies is the battery; entry order decides between matches.
    for (const Json::Value& entry : root["Battery"]) {
        if (!entry.isObject() || !entry["Name"].isString()) {
            SOH_LOGE("battery not config policy name\n");
            continue;
        }
        auto battery = std::make_unique<BaspBattery>(entry["Name"].asString());
        if (battery->Init(root, entry) != 0) {
            SOH_LOGE("basp battery init failed\n");
            continue;
        }
        batterys.push_back(std::move(battery));
        break;
    }
    return static_cast<int>(batterys.size());
}

void BaspEstimator::UpdateLimitValue(std::vector<std::unique_ptr<BaspBattery>>& batterys) {
    uint32_t dcVolt = 0;
    uint32_t nonDcVolt = 0;
    uint32_t dcCur = 100;
    uint64_t nonDcCur = 2147483647;
    for (auto& battery : batterys) {
        const std::shared_ptr<BaspPolicyStage> policy = battery->GetPolicy();
        if (!policy) {
            continue;
        }
        dcVolt = std::max(dcVolt, policy->DcVoltDec);
        nonDcVolt = std::max(nonDcVolt, policy->NonDcVoltDec);
        dcCur = std::min(dcCur, policy->CurrentRatio);
        nonDcCur = std::min<uint64_t>(
            nonDcCur, static_cast<uint64_t>(policy->refCurrent) * policy->CurrentRatio / 100);
    }
    Notify(dcVolt, nonDcVolt, dcCur, static_cast<double>(nonDcCur));
}

void BaspEstimator::Notify(double dcVolt, double nonDcVolt, double dcCur, double nonDcCur) {
    NotifyOne("DcVoltLimitator", dcVolt);
    NotifyOne("NonDcVoltLimitator", nonDcVolt);
    NotifyOne("DcCurLimitator", dcCur);
    NotifyOne("NonDcCurLimitator", nonDcCur);
}
