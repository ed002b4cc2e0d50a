// SohService: the daemon's control service "soh.service". It routes named parameters to the
// estimator that owns them and forwards gets (code 1) and sets (code 2) to that estimator's
// GetPara/SetPara; it knows nothing of the parameters themselves.
//
// Wire: code 1 takes a String8 name and answers a String8 value; code 2 takes a String8 name
// and a String8 value and answers nothing. Statuses: OK; BAD_TYPE for a name no estimator
// owns; NAME_NOT_FOUND when the owning estimator does not exist; BAD_VALUE when the estimator
// refuses, or for code 1 without a reply parcel; any other code goes to BBinder's default.
//
// Dump: the platform's dump transaction reaches BBinder's default handling (after the
// "invalid code" line like any other code) and from there dump(), which writes the daemon's
// state (soh_dump.h) to the descriptor that came with it: text, or JSON when an argument is
// "--json".
//
// Threads: transactions arrive on the service's pool threads, several at once. Each handler
// holds the estimator pool's call lock across the lookup and the call into the estimator, so
// parameter requests are serialised. A dump does not take that lock: it copies the state under
// each object's own lock briefly and writes outside every lock. The routing table is fixed at
// construction. One service object per process, created by Start and kept until exit.
#pragma once

#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <utils/String16.h>
#include <utils/Vector.h>

#include <string>
#include <utility>
#include <vector>

class SohService : public android::BBinder {
public:
    static constexpr const char* kServiceName = "soh.service";
    static constexpr uint32_t kCodeGetPara = 1;
    static constexpr uint32_t kCodeSetPara = 2;

    SohService();

    // Creates the service once, registers it, starts the service threads and announces it
    // with "vendor.soh_service" = "start". Called once by start-up.
    static void Start();

    const android::String16& getInterfaceDescriptor() const override { return descriptor_; }
    // Writes the daemon's state to `fd` (not owned); OK or a negative errno status.
    android::status_t dump(int fd, const android::Vector<android::String16>& args) override;
    // The estimator that owns `para` (exact match), or "" when none does.
    std::string FindParaObjName(const std::string& para) const;

protected:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;

private:
    android::status_t GetPara(const android::Parcel& data, android::Parcel* reply);
    android::status_t SetPara(const android::Parcel& data);
    template <typename Call>
    android::status_t Route(const std::string& para, Call call);

    const android::String16 descriptor_;
    // (estimator name, parameter name), in lookup order.
    const std::vector<std::pair<std::string, std::string>> routes_;
};
