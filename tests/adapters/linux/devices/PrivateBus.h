// SPDX-License-Identifier: MIT
#pragma once

#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"

#include "bus/BusConnection.h"
#include "threads/StopSignal.h"

#include <condition_variable>
#include <csignal>
#include <map>
#include <mutex>
#include <sys/socket.h>
#include <thread>

namespace morvellacinto::native {

/// A bus daemon of the test's own that this process takes for the system bus, the class under test
/// that asks it, and services that answer as the test describes, on a thread of their own: what is
/// asked of another path or interface is an error.
class PrivateBus {
public:
    /// Runs on the services' thread; what it does not answer stays unanswered.
    using Method = std::function<void(sd_bus_message* call)>;

    /// With services of these names.
    explicit PrivateBus(const std::vector<const char*>& services = {});
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;
    ~PrivateBus() { serve({}); }

    void stop() { daemon_.reset(); }
    void start(); ///< anew at the same address
    /// From now on it takes connections and says nothing.
    void freeze() { daemon_->send(SIGSTOP); }
    [[nodiscard]] std::vector<std::string> told();

    /// Services of these names, in place of those before, which leave as if they had crashed.
    void serve(const std::vector<const char*>& services);
    /// What they do from now on. "GetAll" is that of the properties of `interface`.
    void onCall(const std::string& path, const std::string& interface, const std::string& member,
                Method method);
    /// Answers with what sd_bus_message_append makes of types and values, which must live on.
    template <class... Values>
    void reply(const std::string& path, const std::string& interface, const std::string& member,
               const char* types, Values... values) {
        onCall(path, interface, member,
               [=](sd_bus_message* call) { sd_bus_reply_method_return(call, types, values...); });
    }
    /// Sends something: `use` gets the services' connection.
    void send(const std::function<void(sd_bus*)>& use);
    /// Whether `member` is called so many times, before long.
    [[nodiscard]] bool wasCalled(const std::string& member, int times = 1);
    [[nodiscard]] int callsOf(const std::string& member);

    const testing::TemporaryDirectory folder;
    StopSignal stopSignal;
    Bus bus;

private:
    static int received(sd_bus_message* call, void* self, sd_bus_error* error);
    void work();

    const std::string address_ = "unix:path=" + (folder.path() / "socket").string();
    std::unique_ptr<testing::ChildProcess> daemon_;
    std::recursive_mutex mutex_; // methods use this object
    std::condition_variable_any called_;
    std::vector<std::string> told_;
    std::map<std::string, Method> methods_;
    std::map<std::string, int> calls_;
    sd_bus* services_ = nullptr;
    std::thread thread_;
};

} // namespace morvellacinto::native
