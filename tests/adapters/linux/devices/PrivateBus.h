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
#include <poll.h>
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

    explicit PrivateBus(const std::vector<const char*>& services = {}) {
        setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
        start();
        serve(services);
    }
    ~PrivateBus() { serve({}); }

    void stop() { daemon_.reset(); }
    void start() {
        stop();
        std::filesystem::remove(folder.path() / "socket");
        folder.write("bus.conf", "<busconfig><type>session</type><listen>" + address_ +
                                     R"(</listen><auth>EXTERNAL</auth>
<policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/>
<allow own="*"/></policy></busconfig>)");
        daemon_ = std::make_unique<testing::ChildProcess>(std::vector<std::string>{
            "/usr/bin/dbus-daemon", "--config-file=" + (folder.path() / "bus.conf").string(),
            "--nofork", "--nopidfile", "--print-address"});
        if (daemon_->readLine().empty()) {
            throw std::runtime_error("dbus-daemon does not run");
        }
    }
    void freeze() { daemon_->send(SIGSTOP); }

    /// Services of these names, in place of those before, which leave as if they had crashed.
    void serve(const std::vector<const char*>& services) {
        if (thread_.joinable()) {
            send([](sd_bus* connection) { shutdown(sd_bus_get_fd(connection), SHUT_RDWR); });
            thread_.join();
            services_ = sd_bus_close_unref(services_);
        }
        if (services.empty()) {
            return;
        }
        constexpr std::uint64_t takesTurns =
            SD_BUS_NAME_REPLACE_EXISTING | SD_BUS_NAME_ALLOW_REPLACEMENT;
        bool isServed = sd_bus_open_system(&services_) >= 0 &&
                        sd_bus_add_filter(services_, nullptr, received, this) >= 0;
        for (const char* name : services) {
            isServed = isServed && sd_bus_request_name(services_, name, takesTurns) >= 0;
        }
        if (!isServed) {
            throw std::runtime_error("no services on the private bus");
        }
        thread_ = std::thread([this] { work(); });
    }
    /// What they do from now on. "GetAll" is that of the properties of `interface`.
    void onCall(const std::string& path, const std::string& interface, const std::string& member,
                Method method) {
        const std::lock_guard lock(mutex_);
        methods_[path + " " + interface + " " + member] = std::move(method);
    }
    /// Answers with what sd_bus_message_append makes of types and values, which must live on.
    template <class... Values>
    void reply(const std::string& path, const std::string& interface, const std::string& member,
               const char* types, Values... values) {
        onCall(path, interface, member,
               [=](sd_bus_message* call) { sd_bus_reply_method_return(call, types, values...); });
    }
    void send(const std::function<void(sd_bus*)>& use) {
        const std::lock_guard lock(mutex_);
        use(services_);
    }
    [[nodiscard]] bool wasCalled(const std::string& member, int times = 1) {
        std::unique_lock lock(mutex_);
        return called_.wait_for(lock, std::chrono::seconds(20),
                                [&] { return calls_[member] >= times; });
    }
    [[nodiscard]] int callsOf(const std::string& member) {
        const std::lock_guard lock(mutex_);
        return calls_[member];
    }

    const testing::TemporaryDirectory folder;
    std::vector<std::string> told; ///< to be read while nobody asks
    StopSignal stopSignal;
    Bus bus{[this](std::string_view sentence) {
                const std::lock_guard lock(mutex_);
                told.emplace_back(sentence);
            },
            stopSignal};

private:
    static int received(sd_bus_message* call, void* self, sd_bus_error* /*error*/) {
        if (sd_bus_message_is_method_call(call, nullptr, nullptr) <= 0) {
            return 0;
        }
        auto& bus = *static_cast<PrivateBus*>(self);
        const char* interface = sd_bus_message_get_interface(call);
        const std::string member = sd_bus_message_get_member(call);
        if (member == "GetAll") {
            sd_bus_message_read(call, "s", &interface);
        }
        ++bus.calls_[member];
        bus.called_.notify_all();
        const auto key =
            std::string(sd_bus_message_get_path(call)) + " " + interface + " " + member;
        if (const Method method = bus.methods_[key]) { // a copy, for it may replace itself
            method(call);
        } else {
            sd_bus_reply_method_errorf(call, SD_BUS_ERROR_UNKNOWN_METHOD, "no %s", key.c_str());
        }
        return 1;
    }
    void work() {
        for (;;) {
            pollfd waits{};
            {
                const std::lock_guard lock(mutex_);
                int result = 1;
                while (result > 0) {
                    result = sd_bus_process(services_, nullptr);
                }
                if (result < 0) {
                    return;
                }
                const auto events = static_cast<short>(sd_bus_get_events(services_));
                waits = {sd_bus_get_fd(services_), events, 0};
            }
            poll(&waits, 1, -1);
        }
    }

    const std::string address_ = "unix:path=" + (folder.path() / "socket").string();
    std::unique_ptr<testing::ChildProcess> daemon_;
    std::recursive_mutex mutex_; // methods use this object
    std::condition_variable_any called_;
    std::map<std::string, Method> methods_;
    std::map<std::string, int> calls_;
    sd_bus* services_ = nullptr;
    std::thread thread_;
};

} // namespace morvellacinto::native
