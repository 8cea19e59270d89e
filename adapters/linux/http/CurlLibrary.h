#pragma once

#include <memory>

namespace morvellacinto::native {

class TransferLoop;

/// Initialises libcurl, once a process, and sees to it that exit() ends `loop`'s thread before the
/// exit handlers of the libraries below it run: they take down what a handshake is using. Any
/// thread. Throws std::runtime_error when libcurl cannot be initialised.
void useCurl(const std::shared_ptr<TransferLoop>& loop);

} // namespace morvellacinto::native
