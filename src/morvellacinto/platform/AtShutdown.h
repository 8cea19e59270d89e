#pragma once

namespace morvellacinto::platform {

/// Has `release`, of which there is one, called at the end of a shutdown on the main thread: it
/// lets go of what of the host's the library keeps for that thread.
void atShutdown(void (*release)()) noexcept;

} // namespace morvellacinto::platform
