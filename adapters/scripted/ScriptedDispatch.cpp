// SPDX-License-Identifier: MIT
#include "morvellacinto/scripted/ScriptedDispatch.h"

#include <stdexcept>
#include <utility>

namespace morvellacinto::scripted {

namespace {

void refuseEndless(std::size_t ran) {
    if (ran > ScriptedDispatch::maximumBlocksOfOneDrain) {
        throw std::logic_error("a queue has not come to rest after " + std::to_string(ran) +
                               " blocks");
    }
}

} // namespace

ScriptedDispatch::ScriptedDispatch() : mainThread_(std::this_thread::get_id()) {}

void ScriptedDispatch::asyncMain(Block block) { post(main_, std::move(block)); }

void ScriptedDispatch::asyncGlobal(Block block) { post(background_, std::move(block)); }

bool ScriptedDispatch::isMainThread() const noexcept {
    return std::this_thread::get_id() == mainThread_;
}

std::size_t ScriptedDispatch::drainMain() {
    if (!isMainThread()) {
        throw std::logic_error("the main queue runs on the thread that created the phone alone");
    }
    rethrowEscaped();
    std::size_t ran = 0;
    while (const Block block = take(main_)) {
        refuseEndless(++ran);
        block();
    }
    return ran;
}

std::size_t ScriptedDispatch::runBackground() {
    std::size_t ran = 0;
    while (Block block = take(background_)) {
        refuseEndless(++ran);
        std::thread([this, block = std::move(block)]() mutable {
            try {
                block();
            } catch (...) {
                const std::lock_guard lock(mutex_);
                escaped_.push_back(std::current_exception());
            }
            block = nullptr; // what it holds is host code's and goes on this thread too
        }).join();
    }
    return ran;
}

std::size_t ScriptedDispatch::waitingCount() const {
    const std::lock_guard lock(mutex_);
    return main_.size() + background_.size() + escaped_.size();
}

void ScriptedDispatch::shutdown() {
    std::deque<Block> droppedMain; // destroyed without the lock
    std::deque<Block> droppedBackground;
    std::deque<std::exception_ptr> droppedExceptions;
    const std::lock_guard lock(mutex_);
    isShutDown_ = true;
    droppedMain.swap(main_);
    droppedBackground.swap(background_);
    droppedExceptions.swap(escaped_);
}

void ScriptedDispatch::post(std::deque<Block>& queue, Block block) {
    const std::lock_guard lock(mutex_);
    if (!isShutDown_) {
        queue.push_back(std::move(block));
    }
}

ScriptedDispatch::Block ScriptedDispatch::take(std::deque<Block>& queue) {
    const std::lock_guard lock(mutex_);
    if (queue.empty()) {
        return nullptr;
    }
    Block block = std::move(queue.front());
    queue.pop_front();
    return block;
}

void ScriptedDispatch::rethrowEscaped() {
    std::exception_ptr oldest;
    {
        const std::lock_guard lock(mutex_);
        if (escaped_.empty()) {
            return;
        }
        oldest = std::move(escaped_.front());
        escaped_.pop_front();
    }
    std::rethrow_exception(std::move(oldest));
}

} // namespace morvellacinto::scripted
