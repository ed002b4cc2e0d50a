#include "cvt/cvt_estimator.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "core/soh_configure.h"
#include "core/soh_enviroment.h"
#include "core/soh_log.h"
#include "cvt/cvt_nodes.h"
#include "platform/soh_clock.h"
#include "platform/soh_root.h"

namespace {

// Opens the charge-start node and reads it, which arms the next priority event; -1 on failure.
int ArmEventNode() {
    int fd = open(SohRoot::RootPath(CvtNodes::kChargeStartEvent).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        SOH_LOGE("open POLL_CC_EVENT_SYSFS failed\n");
        return -1;
    }
    char buf[32] = {};
    if (read(fd, buf, sizeof(buf) - 1) < 0) {
        SOH_LOGE("read fd failed\n");
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
    int fd = ArmEventNode();
    if (fd < 0) {
        return -1;
    }
    for (;;) {
        struct pollfd pfd = {fd, POLLPRI, 0};
        int n = SohClock::Poll(&pfd, 1, -1);
        if (n < 0 && errno != EINTR) {
            close(fd);
            return -1;
        }
        if (SOHConfigure::IsSchemeClosed(GetName())) {
            SOH_LOGE("cvt has closed by app\n");
            close(fd);
            return 0;
        }
        if (n > 0 && (pfd.revents & POLLPRI) != 0 && battery_ != nullptr) {
            SOH_LOGI("start handle charge event\n");
            battery_->ConstantVoltageTime();
        }
        close(fd);
        fd = ArmEventNode();
        if (fd < 0) {
            return -1;
        }
    }
}
