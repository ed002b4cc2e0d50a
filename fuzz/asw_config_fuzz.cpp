// The anti-swelling section: battery entries (policy and swell-table names, SIM support, the
// normal scene's event), swell tables and scene lists with their condition groups. The input
// is the section's JSON text, parsed by the daemon's configuration reader; the batteries are
// initialised and run across a day boundary, every scene list is selected from and evaluated
// against a week of accounting, every swell table is multiplied with the time spent.
#include "fuzz/fuzz_device.h"
#include "fuzz/fuzz_sections.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool ready = [] {
        FuzzDevice::Setup();
        return true;
    }();
    (void)ready;
    Json::Value section;
    if (FuzzDevice::ParseAsConfig(std::string(reinterpret_cast<const char*>(data), size),
                                  section)) {
        FuzzSections::Asw(section);
    }
    FuzzDevice::ForgetAppends();
    return 0;
}
