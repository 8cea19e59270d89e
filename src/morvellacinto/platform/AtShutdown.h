#pragma once

namespace morvellacinto::platform {

/// Has `release` called, once, when a shutdown has stopped everything: it lets go of what the
/// library still keeps of the host's. There is one.
void atShutdown(void (*release)()) noexcept;

} // namespace morvellacinto::platform
