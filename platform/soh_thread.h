// The thread seam: the daemon starts its long-lived threads here, so that a host build under the
// simulator's virtual clock can schedule them (platform/host/vclock_client.h).
//
// Ownership: the thread owns `body`. Threads: callable from any thread.
#pragma once

#include <functional>

namespace SohThread {

// Starts a detached thread that runs `body`; `role` names it in the simulator's reports
// ("ASW", "EIS acr", ...). Throws std::system_error when no thread can be made, as
// std::thread does.
void StartDetached(const char* role, std::function<void()> body);

}  // namespace SohThread
