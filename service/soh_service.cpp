#include "service/soh_service.h"

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <bms_interface.h>

#include <mutex>
#include <vector>

#include "core/soh_estimator.h"
#include "core/soh_log.h"
#include "service/dump_output.h"
#include "service/soh_dump.h"
#include "service/soh_dump_format.h"

using android::Parcel;
using android::status_t;
using android::String8;

SohService::SohService()
    : descriptor_(kServiceName),
      routes_{{"APP", "smart_charge_feature"},
              {"APP", "smart_charging"},
              {"APP", "smart_charge_enable"},
              {"APP", "smart_charge_support"},
              {"ASW", "dbg_asw_aswell_add"},
              {"APP", "soc_control"},
              {"APP", "vterm_dec"},
              {"APP", "ichg_limit"},
              {"APP", "ichg_ratio"},
              {"APP", "close_scheme"},
              {"APP", "vnupd_config"},
              {"APP", "batt_status"}} {}

void SohService::Start() {
    android::sp<android::IServiceManager> manager = android::defaultServiceManager();
    // Never destroyed: the service threads serve it until the process is gone.
    static android::sp<SohService>& service =
        *new android::sp<SohService>(android::sp<SohService>::make());
    status_t status = manager->addService(android::String16(kServiceName), service, false,
                                          android::IServiceManager::DUMP_FLAG_PRIORITY_DEFAULT);
    if (status != android::OK) {
        SOH_LOGE("start soh service failed %d\n", status);
    }
    android::ProcessState::self()->startThreadPool();
    BmsPropertySetValue("vendor.soh_service", "start");
}

std::string SohService::FindParaObjName(const std::string& para) const {
    for (const auto& route : routes_) {
        if (route.second == para) {
            return route.first;
        }
    }
    return "";
}

status_t SohService::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    switch (code) {
        case kCodeGetPara:
            return reply == nullptr ? android::BAD_VALUE : GetPara(data, reply);
        case kCodeSetPara:
            return SetPara(data);
        default:
            SOH_LOGE("soh service recv invalid code :%d\n", static_cast<int>(code));
            return BBinder::onTransact(code, data, reply, flags);
    }
}

// Finds the estimator that owns `para` and runs `call` on it under the pool's call lock; the
// routing failures give their status and message without reaching any estimator.
template <typename Call>
status_t SohService::Route(const std::string& para, Call call) {
    const std::string owner = FindParaObjName(para);
    if (owner.empty()) {
        SOH_LOGE("soh service obj name is null of %s\n", para.c_str());
        return android::BAD_TYPE;
    }
    std::lock_guard<std::mutex> lock(EstimatorPool().CallLock());
    SOHEstimator* estimator = EstimatorPool().FindObject(owner);
    if (estimator == nullptr) {
        SOH_LOGE("soh service obj is null of %s\n", owner.c_str());
        return android::NAME_NOT_FOUND;
    }
    return call(owner, *estimator);
}

status_t SohService::GetPara(const Parcel& data, Parcel* reply) {
    const std::string para = data.readString8().c_str();
    return Route(para, [&](const std::string& owner, SOHEstimator& estimator) {
        std::string value;
        if (estimator.GetPara(para, value) != 0) {
            SOH_LOGE("soh service obj %s get %s failed\n", owner.c_str(), para.c_str());
            return android::BAD_VALUE;
        }
        SOH_LOGI("soh service get %s:%s value %s\n", owner.c_str(), para.c_str(), value.c_str());
        reply->writeString8(String8(value.c_str()));
        return android::OK;
    });
}

status_t SohService::SetPara(const Parcel& data) {
    const std::string para = data.readString8().c_str();
    const std::string value = data.readString8().c_str();
    return Route(para, [&](const std::string& owner, SOHEstimator& estimator) {
        if (estimator.SetPara(para, value) != 0) {
            SOH_LOGE("soh service obj %s set %s failed\n", owner.c_str(), para.c_str());
            return android::BAD_VALUE;
        }
        SOH_LOGI("soh service set %s:%s value %s\n", owner.c_str(), para.c_str(), value.c_str());
        return android::OK;
    });
}

status_t SohService::dump(int fd, const android::Vector<android::String16>& args) {
    std::vector<std::string> words;
    for (size_t i = 0; i < args.size(); ++i) {
        words.emplace_back(String8(args[i]).c_str());
    }
    const SohDumpState state = CollectDumpState();
    return DumpOutput::Write(fd,
                             DumpWantsJson(words) ? FormatDumpJson(state) : FormatDumpText(state));
}
