// SPDX-License-Identifier: MIT
#include "PrivateBus.h"

#include <poll.h>

namespace morvellacinto::native {

PrivateBus::PrivateBus(const std::vector<const char*>& services)
    : bus(
          [this](std::string_view sentence) {
              const std::lock_guard lock(mutex_);
              told_.emplace_back(sentence);
          },
          stopSignal) {
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
    start();
    serve(services);
}

void PrivateBus::start() {
    daemon_.reset();
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

std::vector<std::string> PrivateBus::told() {
    const std::lock_guard lock(mutex_);
    return told_;
}

void PrivateBus::serve(const std::vector<const char*>& services) {
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

void PrivateBus::onCall(const std::string& path, const std::string& interface,
                        const std::string& member, Method method) {
    const std::lock_guard lock(mutex_);
    methods_[path + " " + interface + " " + member] = std::move(method);
}

void PrivateBus::send(const std::function<void(sd_bus*)>& use) {
    const std::lock_guard lock(mutex_);
    use(services_);
}

bool PrivateBus::wasCalled(const std::string& member, int times) {
    std::unique_lock lock(mutex_);
    return called_.wait_for(lock, std::chrono::seconds(20),
                            [&] { return calls_[member] >= times; });
}

int PrivateBus::callsOf(const std::string& member) {
    const std::lock_guard lock(mutex_);
    return calls_[member];
}

int PrivateBus::received(sd_bus_message* call, void* self, sd_bus_error* /*error*/) {
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
    const auto key = std::string(sd_bus_message_get_path(call)) + " " + interface + " " + member;
    const auto method = bus.methods_.find(key);
    if (method == bus.methods_.end()) {
        sd_bus_reply_method_errorf(call, SD_BUS_ERROR_UNKNOWN_METHOD, "no %s", key.c_str());
    } else {
        const Method run = method->second; // which may replace itself
        run(call);
    }
    return 1;
}

void PrivateBus::work() {
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
            waits = {sd_bus_get_fd(services_), static_cast<short>(sd_bus_get_events(services_)), 0};
        }
        poll(&waits, 1, -1);
    }
}

} // namespace morvellacinto::native
