// Device root: paths are what they say.
#include "platform/soh_root.h"

namespace SohRoot {

std::string RootPath(const std::string& devicePath) {
    return devicePath;
}

void Wrote(const std::string&) {}

bool NodesStayInPlace() {
    return true;
}

}  // namespace SohRoot
