// Host root: device paths are placed under $QUEN_ROOT.
#include <stdlib.h>

#include "platform/host/vclock_client.h"
#include "platform/soh_root.h"

namespace SohRoot {

std::string RootPath(const std::string& devicePath) {
    const char* root = getenv("QUEN_ROOT");
    if (root == nullptr || root[0] == '\0' || devicePath.empty() || devicePath[0] != '/') {
        return devicePath;
    }
    std::string out(root);
    while (!out.empty() && out.back() == '/') {
        out.pop_back();
    }
    return out + devicePath;
}

void Wrote(const std::string&) {
    if (VClockClient::On() && VClockClient::Participant()) {
        VClockClient::HandOver();
    }
}

}  // namespace SohRoot
