#pragma once

// Read BusCall.h, Bus.h, BusConnection.h, then BusValues.h.

#include "BusCall.h"
#include "Diagnostics.h"
#include "threads/StopSignal.h"

#include <atomic>
#include <string>

namespace morvellacinto::native {

/// The system bus for all services. It has neither a thread nor a connection: each question opens
/// one, which takes a quarter of a millisecond, on the thread that asks. Any thread.
class Bus {
public:
    /// `stop` ends all that waits, and must outlive this.
    Bus(Diagnostics diagnostics, const StopSignal& stop);

    /// A question of one call: waits for the answer, at most for `busTimeout`.
    [[nodiscard]] BusReply call(const BusCall& call);

    /// Tells what is wrong with the bus, once until it answers again.
    void tellTrouble(const std::string& trouble);
    void noteAnswer() noexcept { told_ = false; }
    [[nodiscard]] int stopDescriptor() const noexcept { return stop_.descriptor(); }

private:
    const Diagnostics diagnostics_;
    const StopSignal& stop_;
    std::atomic<bool> told_ = false;
};

} // namespace morvellacinto::native
