// Host root: device paths are placed under $QUEN_ROOT.
#include <stdlib.h>
#include <string.h>

#include "platform/host/vclock_client.h"
#include "platform/soh_root.h"

namespace SohRoot {

std::string RootPath(const std::string& devicePath) {
    const char* root = getenv("QUEN_ROOT");
    if (root == nullptr || root[0] == '\0' || devicePath.empty() || devicePath[0] != '/') {
        return devicePath;
    }
    size_t rootLength = strlen(root);
    while (rootLength > 0 && root[rootLength - 1] == '/') {
        --rootLength;  // the device path brings its own leading slash
    }
    std::string out;
    out.reserve(rootLength + devicePath.size());
    out.append(root, rootLength);
    out.append(devicePath);
    return out;
}

bool NodesStayInPlace() {
    return VClockClient::On();
}

void Wrote(const std::string&) {
    if (VClockClient::On() && VClockClient::Participant()) {
        VClockClient::HandOver();
    }
}

}  // namespace SohRoot
