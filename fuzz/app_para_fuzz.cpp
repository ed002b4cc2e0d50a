// Values of the control-service parameters as the estimators that own them parse them: the
// app bridge ("APP", without an anti-swelling estimator in the pool, so that it parses every
// value itself) and the anti-swelling estimator's own parameters. The first byte picks the
// owner (bit 7: anti-swelling) and the name (low four bits: one of the twelve routed names,
// or 12..15: a name taken from the input up to a NUL); the value follows, up to a NUL, as a
// parcel's string reaches the estimator. Each input is set and then read back.
#include "asw/asw_estimator.h"
#include "core/soh_estimator.h"
#include "fuzz/fuzz_device.h"

namespace {

constexpr const char* kNames[] = {
    "smart_charge_feature", "smart_charging", "smart_charge_enable", "smart_charge_support",
    "dbg_asw_aswell_add",   "soc_control",    "vterm_dec",           "ichg_limit",
    "ichg_ratio",           "close_scheme",   "vnupd_config",        "batt_status"};
constexpr size_t kNameCount = sizeof(kNames) / sizeof(kNames[0]);

struct Owners {
    SOHEstimator* app = nullptr;
    SOHEstimator* asw = nullptr;
};

Owners Make() {
    FuzzDevice::Setup();
    FuzzDevice::DeclareAll();
    Owners o;
    o.app = EstimatorPool().GetObjectByName("APP");
    o.asw = new AswEstimator("ASW");  // not in the pool: the app bridge does not forward to it
    return o;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Owners owners = Make();
    FuzzInput in(data, size);
    const uint8_t which = in.Byte();
    const size_t index = which & 0x0f;
    const std::string name = index < kNameCount ? kNames[index] : in.CString();
    const std::string value = in.CString();
    SOHEstimator* owner = (which & 0x80) != 0 ? owners.asw : owners.app;

    owner->SetPara(name, value);
    std::string out;
    owner->GetPara(name, out);
    FuzzDevice::ForgetAppends();
    return 0;
}
