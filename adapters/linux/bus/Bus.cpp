#include "Bus.h"

#include "BusConnection.h"
#include "threads/SignalsBlocked.h"
#include "basics/KeepForever.h"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace morvellacinto::native {

namespace {

using Clock = BusConnection::Clock;

// How much longer than a call's time-out its caller waits for the bus's thread to tell.
constexpr std::chrono::milliseconds grace(50);

thread_local const void* busOfThisThread = nullptr;

int pollTimeout(Clock::time_point until) {
    const auto now = Clock::now();
    if (until <= now) {
        return 0;
    }
    constexpr std::chrono::milliseconds longest = std::chrono::minutes(1);
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(
        std::min<Clock::duration>(until - now, longest));
    return static_cast<int>(left.count());
}

// Where the answers to calls that somebody waits for are put together.
struct Answers {
    explicit Answers(std::size_t count)
        : replies(count, BusReply{{}, std::string(BusError::noReply), {}}), missing(count) {}

    void put(std::size_t index, const BusReply& reply) {
        const std::lock_guard lock(mutex);
        replies[index] = reply;
        if (--missing == 0) {
            complete.notify_all();
        }
    }

    std::vector<BusReply> wait(Clock::time_point until) {
        std::unique_lock lock(mutex);
        complete.wait_until(lock, until, [this] { return missing == 0; });
        return replies;
    }

    std::mutex mutex;
    std::condition_variable complete;
    std::vector<BusReply> replies;
    std::size_t missing;
};

} // namespace

// Shared with the thread, which may outlive the bus when it is itself the one that lets go of it.
struct Bus::State : std::enable_shared_from_this<State> {
    State(Diagnostics diagnostics, std::chrono::milliseconds idle)
        : process(getpid()), idleLimit(idle), connection(silentNames, std::move(diagnostics)) {}

    ~State() {
        if (wakeDescriptor >= 0) {
            close(wakeDescriptor);
        }
    }

    [[nodiscard]] bool inForkedChild() const { return getpid() != process; }
    [[nodiscard]] bool isOwnThread() const { return busOfThisThread == this; }
    bool post(Task& task);
    void shutdown();

    void start();
    void wake() const;
    void work();
    void waitForEvents(Clock::time_point until) const;

    const pid_t process;
    const std::chrono::milliseconds idleLimit;
    SilentNames silentNames;
    BusConnection connection; // the thread's

    std::mutex mutex;
    std::deque<Task> tasks;
    std::thread thread;
    int wakeDescriptor = -1;
    bool isRunning = false;
    bool isStopping = false;
};

bool Bus::State::post(Task& task) {
    if (inForkedChild()) {
        return false;
    }
    const std::lock_guard lock(mutex);
    if (isStopping) {
        return false;
    }
    if (!isRunning) {
        try {
            start();
        } catch (const std::system_error&) {
            return false;
        }
    }
    tasks.push_back(std::move(task));
    wake();
    return true;
}

void Bus::State::shutdown() {
    if (inForkedChild()) {
        return;
    }
    std::thread ending;
    {
        const std::lock_guard lock(mutex);
        isStopping = true;
        if (isRunning) {
            wake();
        }
        ending = std::move(thread);
    }
    if (ending.get_id() == std::this_thread::get_id()) {
        ending.detach();
    } else if (ending.joinable()) {
        ending.join();
    }
}

void Bus::State::start() {
    if (thread.joinable()) { // one that has been idle too long
        thread.join();
    }
    if (wakeDescriptor < 0) {
        wakeDescriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        if (wakeDescriptor < 0) {
            throw std::system_error(errno, std::generic_category(), "eventfd");
        }
    }
    const SignalsBlocked blocked;
    thread = std::thread([state = shared_from_this()] { state->work(); });
    isRunning = true;
}

void Bus::State::wake() const { eventfd_write(wakeDescriptor, 1); }

void Bus::State::work() {
    busOfThisThread = this;
    pthread_setname_np(pthread_self(), "morvellacinto");
    auto lastUse = Clock::now();
    std::unique_lock lock(mutex);
    for (;;) {
        std::deque<Task> taken = std::exchange(tasks, {});
        const bool stop = isStopping;
        if (taken.empty() && !stop && connection.isIdle() && Clock::now() - lastUse >= idleLimit) {
            break;
        }
        lock.unlock();
        if (stop) {
            connection.shutdown();
        }
        for (const Task& task : taken) {
            task(connection);
        }
        connection.process();
        if (!taken.empty() || !connection.isIdle()) {
            lastUse = Clock::now();
        }
        taken.clear();
        if (!stop) {
            waitForEvents(connection.isIdle()
                              ? std::min(connection.nextDeadline(), lastUse + idleLimit)
                              : connection.nextDeadline());
        }
        lock.lock();
        if (stop) {
            break;
        }
    }
    connection.close();
    isRunning = false;
}

void Bus::State::waitForEvents(Clock::time_point until) const {
    const auto bus = connection.waitsFor();
    std::array<pollfd, 2> descriptors{pollfd{wakeDescriptor, POLLIN, 0},
                                      bus.value_or(pollfd{-1, 0, 0})};
    poll(descriptors.data(), descriptors.size(), pollTimeout(until));
    eventfd_t count = 0;
    eventfd_read(wakeDescriptor, &count);
}

Bus::Bus(Diagnostics diagnostics, std::chrono::milliseconds idleLimit)
    : state_(std::make_shared<State>(std::move(diagnostics), idleLimit)) {}

Bus::~Bus() {
    if (state_->inForkedChild()) {
        // Its thread's handle cannot be destroyed, and the connection is the parent's.
        keepForever(state_);
        return;
    }
    shutdown();
}

BusReply Bus::call(BusCall call) { return std::move(callAll({std::move(call)}).front()); }

std::vector<BusReply> Bus::callAll(const std::vector<BusCall>& calls) {
    const auto answers = std::make_shared<Answers>(calls.size());
    const auto now = Clock::now();
    auto latest = now;
    for (const BusCall& call : calls) {
        latest = std::max(latest, now + call.timeout);
    }
    Task task = [answers, now, calls](BusConnection& connection) {
        for (std::size_t index = 0; index < calls.size(); ++index) {
            connection.callUntil(
                calls[index], now + calls[index].timeout,
                [answers, index](const BusReply& reply) { answers->put(index, reply); });
        }
    };
    if (calls.empty() || state_->isOwnThread() || !state_->post(task)) {
        return answers->replies;
    }
    return answers->wait(latest + grace);
}

bool Bus::post(Task task) { return state_->post(task); }

void Bus::shutdown() { state_->shutdown(); }

} // namespace morvellacinto::native
