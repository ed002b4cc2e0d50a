// One estimator's configuration section, as its estimator reads it: the first byte picks the
// estimator (BASP, CVT, EIS, or APP for the part every estimator reads: protectors, "Common"
// and numeric parameter groups); the rest is the section's JSON text, parsed by the daemon's
// configuration reader. The anti-swelling section has a target of its own (asw_config).
#include "fuzz/fuzz_device.h"
#include "fuzz/fuzz_sections.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool ready = [] {
        FuzzDevice::Setup();
        FuzzDevice::DeclareAll();
        FuzzSections::Setup();
        return true;
    }();
    (void)ready;
    FuzzInput in(data, size);
    const uint8_t which = in.Byte() % 4;
    Json::Value section;
    if (!FuzzDevice::ParseAsConfig(in.Rest(), section)) {
        return 0;
    }
    switch (which) {
        case 0:
            FuzzSections::Common("BASP", section);
            FuzzSections::Basp(section);
            break;
        case 1:
            FuzzSections::Common("CVT", section);
            FuzzSections::Cvt(section);
            break;
        case 2:
            FuzzSections::Common("EIS", section);
            FuzzSections::Eis(section);
            break;
        default:
            FuzzSections::Common("APP", section);
            break;
    }
    FuzzDevice::ForgetAppends();
    return 0;
}
