// Device thread seam: a plain detached thread.
#include <thread>

#include "platform/soh_thread.h"

namespace SohThread {

void StartDetached(const char*, std::function<void()> body) {
    std::thread(std::move(body)).detach();
}

}  // namespace SohThread
