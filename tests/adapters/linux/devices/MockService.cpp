#include "MockService.h"

#include <chrono>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <utility>

namespace morvellacinto::native {

MockService::MockService(const char* name) {
    constexpr std::uint64_t takesTurns =
        SD_BUS_NAME_REPLACE_EXISTING | SD_BUS_NAME_ALLOW_REPLACEMENT;
    if (sd_bus_open_system(&bus_) < 0 || sd_bus_add_filter(bus_, nullptr, received, this) < 0 ||
        sd_bus_request_name(bus_, name, takesTurns) < 0) {
        throw std::runtime_error(std::string("no ") + name + " on the private bus");
    }
    thread_ = std::thread([this] { work(); });
}

MockService::~MockService() {
    die();
    thread_.join();
    sd_bus_close_unref(bus_);
}

void MockService::onCall(const std::string& path, const std::string& interface,
                         const std::string& member, Method method) {
    const std::lock_guard lock(mutex_);
    methods_[path + " " + interface + " " + member] = std::move(method);
}

void MockService::send(const std::function<void(sd_bus*)>& use) {
    const std::lock_guard lock(mutex_);
    use(bus_);
}

void MockService::die() {
    send([](sd_bus* bus) { shutdown(sd_bus_get_fd(bus), SHUT_RDWR); });
}

bool MockService::wasCalled(const std::string& member, int times) {
    std::unique_lock lock(mutex_);
    return called_.wait_for(lock, std::chrono::seconds(20),
                            [&] { return calls_[member] >= times; });
}

int MockService::callsOf(const std::string& member) {
    const std::lock_guard lock(mutex_);
    return calls_[member];
}

int MockService::received(sd_bus_message* call, void* self, sd_bus_error* /*error*/) {
    if (sd_bus_message_is_method_call(call, nullptr, nullptr) <= 0) {
        return 0;
    }
    auto& service = *static_cast<MockService*>(self);
    const char* interface = sd_bus_message_get_interface(call);
    const std::string member = sd_bus_message_get_member(call);
    if (member == "GetAll") {
        sd_bus_message_read(call, "s", &interface);
    }
    ++service.calls_[member];
    service.called_.notify_all();
    const auto key = std::string(sd_bus_message_get_path(call)) + " " + interface + " " + member;
    const auto method = service.methods_.find(key);
    if (method == service.methods_.end()) {
        sd_bus_reply_method_errorf(call, SD_BUS_ERROR_UNKNOWN_METHOD, "no %s", key.c_str());
    } else {
        const Method run = method->second; // which may replace itself
        run(call);
    }
    return 1;
}

void MockService::work() {
    for (;;) {
        pollfd waits{};
        {
            const std::lock_guard lock(mutex_);
            int result = 1;
            while (result > 0) {
                result = sd_bus_process(bus_, nullptr);
            }
            if (result < 0) {
                return;
            }
            waits = {sd_bus_get_fd(bus_), static_cast<short>(sd_bus_get_events(bus_)), 0};
        }
        poll(&waits, 1, -1);
    }
}

} // namespace morvellacinto::native
