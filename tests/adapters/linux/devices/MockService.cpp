#include "MockService.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>
#include <utility>

namespace morvellacinto::native {

namespace {

std::string keyOf(const std::string& path, const std::string& interface,
                  const std::string& member) {
    return path + " " + interface + " " + member;
}

void send(sd_bus_message* message, const Append& append) {
    append(message);
    sd_bus_send(nullptr, message, nullptr);
    sd_bus_message_unref(message);
}

} // namespace

void reply(sd_bus_message* call, const Append& append) {
    sd_bus_message* answer = nullptr;
    sd_bus_message_new_method_return(call, &answer);
    send(answer, append);
}

struct MockService::State {
    static int received(sd_bus_message* call, void* self, sd_bus_error* /*error*/) {
        const bool isCall = sd_bus_message_is_method_call(call, nullptr, nullptr) > 0;
        if (isCall) {
            static_cast<State*>(self)->answer(call);
        }
        return isCall ? 1 : 0;
    }

    void answer(sd_bus_message* call) {
        const char* argument = "";
        const std::string path = sd_bus_message_get_path(call);
        const std::string member = sd_bus_message_get_member(call);
        std::string key = keyOf(path, sd_bus_message_get_interface(call), member);
        if (key == keyOf(path, "org.freedesktop.DBus.Properties", "GetAll")) {
            sd_bus_message_read(call, "s", &argument);
            key = keyOf(path, argument, member);
        }
        ++calls[member];
        called.notify_all();
        const auto method = methods.find(key);
        if (method == methods.end()) {
            sd_bus_reply_method_errorf(call, SD_BUS_ERROR_UNKNOWN_METHOD, "no %s", key.c_str());
        } else {
            const Method run = method->second;
            run(call);
        }
    }

    void work() {
        for (;;) {
            pollfd waits{};
            {
                const std::lock_guard lock(mutex);
                int result = 1;
                while (result > 0) {
                    result = sd_bus_process(bus, nullptr);
                }
                if (result < 0) {
                    bus = sd_bus_close_unref(bus);
                    return;
                }
                waits = {sd_bus_get_fd(bus), static_cast<short>(sd_bus_get_events(bus)), 0};
            }
            poll(&waits, 1, -1);
        }
    }

    std::recursive_mutex mutex; // methods use the service
    std::condition_variable_any called;
    sd_bus* bus = nullptr;
    std::map<std::string, Method> methods;
    std::map<std::string, int> calls;
    std::thread thread;
};

MockService::MockService(const char* name) : state_(std::make_unique<State>()) {
    constexpr std::uint64_t takesTurns =
        SD_BUS_NAME_REPLACE_EXISTING | SD_BUS_NAME_ALLOW_REPLACEMENT;
    if (sd_bus_open_system(&state_->bus) < 0 ||
        sd_bus_add_filter(state_->bus, nullptr, State::received, state_.get()) < 0 ||
        sd_bus_request_name(state_->bus, name, takesTurns) < 0) {
        throw std::runtime_error(std::string("no ") + name + " on the private bus");
    }
    state_->thread = std::thread([state = state_.get()] { state->work(); });
}

MockService::~MockService() {
    die();
    state_->thread.join();
}

void MockService::setProperties(const std::string& path, const std::string& interface,
                                MockProperties properties) {
    onCall(path, interface, "GetAll", [properties = std::move(properties)](sd_bus_message* call) {
        reply(call, [&](sd_bus_message* message) {
            sd_bus_message_open_container(message, 'a', "{sv}");
            for (const auto& [name, append] : properties) {
                sd_bus_message_open_container(message, 'e', "sv");
                sd_bus_message_append_basic(message, 's', name.c_str());
                append(message);
                sd_bus_message_close_container(message);
            }
            sd_bus_message_close_container(message);
        });
    });
}

void MockService::onCall(const std::string& path, const std::string& interface,
                         const std::string& member, Method method) {
    const std::lock_guard lock(state_->mutex);
    state_->methods[keyOf(path, interface, member)] = std::move(method);
}

void MockService::emit(const std::string& path, const char* interface, const char* member,
                       const Append& arguments) {
    const std::lock_guard lock(state_->mutex);
    sd_bus_message* message = nullptr;
    sd_bus_message_new_signal(state_->bus, &message, path.c_str(), interface, member);
    send(message, arguments);
}

void MockService::call(const char* destination, const char* path, const char* interface,
                       const char* member, const Append& arguments) {
    const std::lock_guard lock(state_->mutex);
    sd_bus_message* message = nullptr;
    sd_bus_message_new_method_call(state_->bus, &message, destination, path, interface, member);
    send(message, arguments);
}

void MockService::die() {
    const std::lock_guard lock(state_->mutex);
    if (state_->bus != nullptr) {
        shutdown(sd_bus_get_fd(state_->bus), SHUT_RDWR);
    }
}

int MockService::callsOf(const std::string& member, int atLeast) {
    std::unique_lock lock(state_->mutex);
    state_->called.wait_for(lock, std::chrono::seconds(20),
                            [&] { return state_->calls[member] >= atLeast; });
    return state_->calls[member];
}

} // namespace morvellacinto::native
