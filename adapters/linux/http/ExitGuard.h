#pragma once

#include <memory>

namespace morvellacinto::native {

class TransferLoop;

/// Sees to it that exit() halts `loop` before OpenSSL's exit handler takes down what a handshake
/// may be using. Call before the loop's thread starts, any number of times. Any thread. Throws
/// std::runtime_error when exit() has come that far already.
void haltAtExit(const std::weak_ptr<TransferLoop>& loop);

} // namespace morvellacinto::native
