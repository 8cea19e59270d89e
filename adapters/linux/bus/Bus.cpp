#include "Bus.h"

#include "BusConnection.h"

#include <utility>

namespace morvellacinto::native {

Bus::Bus(Diagnostics diagnostics, const StopSignal& stop)
    : diagnostics_(std::move(diagnostics)), stop_(stop) {}

BusReply Bus::call(const BusCall& call) { return BusConnection(*this).call(call); }

void Bus::tellTrouble(const std::string& trouble) {
    if (!told_.exchange(true)) {
        diagnostics_("the system bus " + trouble + "; what it would tell counts as unknown");
    }
}

} // namespace morvellacinto::native
