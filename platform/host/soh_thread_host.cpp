// Host thread seam: a detached thread that, on the virtual clock, takes part in the schedule
// from its first instruction to its last.
#include <thread>

#include "platform/host/vclock_client.h"
#include "platform/soh_thread.h"

namespace SohThread {

void StartDetached(const char* role, std::function<void()> body) {
    const int slot = VClockClient::NewSlot(role);
    try {
        std::thread([slot, body = std::move(body)] {
            VClockClient::Enter(slot);
            body();
            VClockClient::Leave();
        }).detach();
    } catch (...) {
        if (slot >= 0) {
            // The slot was taken for a thread that never ran: give it up unscheduled.
            VClockClient::Abandon(slot);
        }
        throw;
    }
}

}  // namespace SohThread
