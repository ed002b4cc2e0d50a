#include "cvt/cvt_estimator.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "core/soh_backoff.h"
#include "core/soh_configure.h"
#include "core/soh_enviroment.h"
#include "core/soh_log.h"
#include "cvt/cvt_nodes.h"
#include "platform/soh_clock.h"
#include "platform/soh_root.h"

namespace {

// Opens the charge-start node and reads it, which arms the next priority event; -1 on failure
// (logged when `log`).
int ArmEventNode(bool log) {
    int fd = open(SohRoot::RootPath(CvtNodes::kChargeStartEvent).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        if (log) {
            SOH_LOGE("open POLL_CC_EVENT_SYSFS failed\n");
        }
        return -1;
    }
    char buf[32] = {};
    if (read(fd, buf, sizeof(buf) - 1) < 0) {
        if (log) {
            SOH_LOGE("read fd failed\n");
        }
        close(fd);
        return -1;
    }
    return fd;
}

}  // namespace

void CvtEstimator::StartMonitor() {
    if (!CanStartMonitor("")) {
        return;
    }
    if (!SOHEnviroment::IsSohSubSysEnable(kBoardKey)) {
        SOH_LOGI("the board config disable cvt\n");  // logged only: the monitor still runs
    }
    RunMonitorThread([this] { Monitor(); });
}

void CvtEstimator::Monitor() {
    SOH_LOGI("start cvt monitor\n");
    int rc = InitCvt();
    if (rc < 0) {
        SOH_LOGE("init cvt para failed to abnormal stop\n");
        return;
    }
    if (rc > 0) {
        SOH_LOGE("cvt no battery match to abnormal stop now\n");
        return;
    }
    if (Select() != 0) {
        SOH_LOGE("battery select error\n");
    }
}

int CvtEstimator::InitCvt() {
    const Json::Value& root = *GetJsonValue();
    const Json::Value& batteries = root.isObject() ? root["Battery"] : Json::Value::nullSingleton();
    if (!batteries.isArray()) {
        SOH_LOGE("root configure not have Battery\n");
        return -1;
    }
    for (const Json::Value& entry : batteries) {
        if (!entry.isObject() || !entry["Name"].isString()) {
            SOH_LOGE("battery not config policy name\n");
            return -1;
        }
    }
    for (const Json::Value& entry : batteries) {
        auto battery = std::make_unique<CvtBattery>();
        if (battery->Init(entry)) {
            battery_ = std::move(battery);
            return 0;
        }
        SOH_LOGE("cvt battery init failed\n");
    }
    return 1;
}

int CvtEstimator::Select() {
    int fd = ArmEventNode(true);
    if (fd < 0) {
        return -1;
    }
    SohBackoff backoff;
    for (;;) {
        struct pollfd pfd = {fd, POLLPRI, 0};
        int n = fd >= 0 ? SohClock::Poll(&pfd, 1, -1) : 0;
        if (n < 0 && errno != EINTR) {
            close(fd);
            return -1;
        }
        if (SOHConfigure::IsSchemeClosed(GetName())) {
            SOH_LOGE("cvt has closed by app\n");
            if (fd >= 0) {
                close(fd);
            }
            return 0;
        }
        const bool event = n > 0 && (pfd.revents & POLLPRI) != 0;
        if (event && battery_ != nullptr) {
            SOH_LOGI("start handle charge event\n");
            battery_->ConstantVoltageTime();
        }
        if (fd >= 0) {
            close(fd);
        }
        // A wake-up without POLLPRI (hang-up, error, invalid descriptor) or a node that cannot
        // be armed again is a fault: back off before the next try, so that it cannot spin.
        const bool fault = n > 0 && !event;
        if (fault || fd < 0) {
            if (backoff.Fail()) {
                SOH_LOGE("cvt: charge-start node %s (%llu times), retrying in %lld s\n",
                         fd < 0 ? "cannot be armed" : "woke without an event",
                         static_cast<unsigned long long>(backoff.Failures()),
                         backoff.StepSeconds());
            }
            backoff.Wait();
            if (SOHConfigure::IsSchemeClosed(GetName())) {
                SOH_LOGE("cvt has closed by app\n");
                return 0;
            }
        }
        fd = ArmEventNode(false);
        if (fd >= 0 && backoff.Failing() && !fault) {
            SOH_LOGE("cvt: charge-start node armed again after %llu failures\n",
                     static_cast<unsigned long long>(backoff.Reset()));
        } else if (fd >= 0 && event) {
            backoff.Reset();
        }
    }
}
