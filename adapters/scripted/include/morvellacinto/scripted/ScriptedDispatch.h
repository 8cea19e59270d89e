// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/Dispatch.h"

#include <cstddef>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>

namespace morvellacinto::scripted {

/// Queues that nothing runs but the test. The thread that creates the object is the main thread.
/// Blocks may be posted on any thread at any time.
class MORVELLACINTO_EXPORT ScriptedDispatch final : public platform::Dispatch {
public:
    /// A drain that runs more blocks than this throws std::logic_error: a queue that feeds itself
    /// would hang the test.
    static constexpr std::size_t maximumBlocksOfOneDrain = 100'000;

    ScriptedDispatch();

    void asyncMain(Block block) override;
    void asyncGlobal(Block block) override;
    [[nodiscard]] bool isMainThread() const noexcept override;

    /// Runs the blocks of the main queue until it is empty, those posted meanwhile included, and
    /// tells how many. First rethrows the oldest exception that escaped from a background block;
    /// one that escapes from a main block passes through and leaves the blocks behind it queued.
    /// Throws std::logic_error on any other thread than the main one.
    std::size_t drainMain();

    /// Runs the blocks of the background queue until it is empty, in order and one at a time, each
    /// on a new thread that has ended when the next one starts; tells how many. Any thread.
    std::size_t runBackground();

    /// Blocks in both queues and escaped exceptions that no drain has rethrown yet.
    [[nodiscard]] std::size_t waitingCount() const;

    /// Drops all blocks, and later ones as they come.
    void shutdown();

private:
    void post(std::deque<Block>& queue, Block block);
    Block take(std::deque<Block>& queue);
    void rethrowEscaped();

    const std::thread::id mainThread_;
    mutable std::mutex mutex_;
    std::deque<Block> main_;
    std::deque<Block> background_;
    std::deque<std::exception_ptr> escaped_;
    bool isShutDown_ = false;
};

} // namespace morvellacinto::scripted
