#include "MockService.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <poll.h>
#include <stdexcept>
#include <string_view>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace morvellacinto::native {

namespace {

constexpr std::chrono::seconds generous(20);

template <class... Values>
Append variant(const char* type, Values... values) {
    return [=](sd_bus_message* message) { sd_bus_message_append(message, "v", type, values...); };
}

Append basic(char type, std::string value) {
    return [type, value = std::move(value)](sd_bus_message* message) {
        sd_bus_message_append(message, "v", std::string(1, type).c_str(), value.c_str());
    };
}

} // namespace

Append text(std::string value) { return basic('s', std::move(value)); }

Append path(std::string value) { return basic('o', std::move(value)); }

Append bytes(std::string value) {
    return [value = std::move(value)](sd_bus_message* message) {
        sd_bus_message_open_container(message, 'v', "ay");
        sd_bus_message_append_array(message, 'y', value.data(), value.size());
        sd_bus_message_close_container(message);
    };
}

Append number(double value) { return variant("d", value); }

Append unsignedNumber(unsigned value) { return variant("u", value); }

Append boolean(bool value) { return variant("b", static_cast<int>(value)); }

void reply(sd_bus_message* call, const Append& values) {
    sd_bus_message* answer = nullptr;
    sd_bus_message_new_method_return(call, &answer);
    if (values) {
        values(answer);
    }
    sd_bus_send(nullptr, answer, nullptr);
    sd_bus_message_unref(answer);
}

void replyError(sd_bus_message* call, const std::string& name, const std::string& message) {
    sd_bus_reply_method_errorf(call, name.c_str(), "%s", message.c_str());
}

struct MockService::State {
    using Interfaces = std::map<std::string, MockProperties>;

    ~State() {
        {
            const std::lock_guard lock(mutex);
            isEnding = true;
        }
        eventfd_write(wake, 1);
        thread.join();
        close(wake);
    }

    static int received(sd_bus_message* call, void* self, sd_bus_error* /*error*/) {
        std::uint8_t type = 0;
        sd_bus_message_get_type(call, &type);
        return type == SD_BUS_MESSAGE_METHOD_CALL ? static_cast<State*>(self)->answer(call) : 0;
    }

    int answer(sd_bus_message* call) {
        const std::string member = sd_bus_message_get_member(call);
        std::unique_lock lock(mutex);
        ++calls[member];
        called.notify_all();
        if (const auto method = methods.find(member); method != methods.end()) {
            const Method run = method->second;
            lock.unlock();
            run(call);
        } else if (member == "GetAll") {
            getAll(call);
        } else if (member == "Set") {
            reply(call, {});
        } else if (member == "GetManagedObjects") {
            reply(call, [this](sd_bus_message* message) { appendObjects(message); });
        } else {
            replyError(call, SD_BUS_ERROR_UNKNOWN_METHOD, "no " + member);
        }
        return 1;
    }

    void getAll(sd_bus_message* call) {
        const char* interface = nullptr;
        sd_bus_message_read(call, "s", &interface);
        const auto object = objects.find(sd_bus_message_get_path(call));
        if (object == objects.end() || !object->second.contains(interface)) {
            replyError(call, SD_BUS_ERROR_UNKNOWN_INTERFACE, "no such object");
            return;
        }
        reply(call, [&](sd_bus_message* message) {
            appendProperties(message, object->second.at(interface));
        });
    }

    static void appendProperties(sd_bus_message* message, const MockProperties& properties) {
        sd_bus_message_open_container(message, 'a', "{sv}");
        for (const auto& [name, append] : properties) {
            sd_bus_message_open_container(message, 'e', "sv");
            sd_bus_message_append_basic(message, 's', name.c_str());
            append(message);
            sd_bus_message_close_container(message);
        }
        sd_bus_message_close_container(message);
    }

    void appendObjects(sd_bus_message* message) const {
        sd_bus_message_open_container(message, 'a', "{oa{sa{sv}}}");
        for (const auto& [name, interfaces] : objects) {
            sd_bus_message_open_container(message, 'e', "oa{sa{sv}}");
            sd_bus_message_append_basic(message, 'o', name.c_str());
            sd_bus_message_open_container(message, 'a', "{sa{sv}}");
            for (const auto& [interface, properties] : interfaces) {
                sd_bus_message_open_container(message, 'e', "sa{sv}");
                sd_bus_message_append_basic(message, 's', interface.c_str());
                appendProperties(message, properties);
                sd_bus_message_close_container(message);
            }
            sd_bus_message_close_container(message);
            sd_bus_message_close_container(message);
        }
        sd_bus_message_close_container(message);
    }

    int takeName() const {
        return sd_bus_request_name(bus, busName.c_str(),
                                   SD_BUS_NAME_ALLOW_REPLACEMENT | SD_BUS_NAME_REPLACE_EXISTING);
    }

    void post(std::function<void()> task) {
        const std::lock_guard lock(mutex);
        tasks.push_back(std::move(task));
        eventfd_write(wake, 1);
    }

    void send(std::function<void(sd_bus*, sd_bus_message**)> create, Append arguments) {
        post([this, create = std::move(create), arguments = std::move(arguments)] {
            sd_bus_message* message = nullptr;
            create(bus, &message);
            arguments(message);
            sd_bus_send(bus, message, nullptr);
            sd_bus_message_unref(message);
        });
    }

    void work() {
        for (;;) {
            int result = 1;
            while (bus != nullptr && result > 0) {
                result = sd_bus_process(bus, nullptr);
                if (isDead || result < 0) {
                    bus = sd_bus_close_unref(bus);
                }
            }
            std::deque<std::function<void()>> taken;
            {
                const std::lock_guard lock(mutex);
                if (isEnding) {
                    break;
                }
                taken.swap(tasks);
            }
            for (const auto& task : taken) {
                task();
            }
            if (!taken.empty()) {
                continue;
            }
            pollfd waits[] = {{wake, POLLIN, 0}, {-1, 0, 0}};
            if (bus != nullptr) {
                waits[1] = {sd_bus_get_fd(bus), static_cast<short>(sd_bus_get_events(bus)), 0};
            }
            poll(waits, 2, -1);
            eventfd_t count = 0;
            eventfd_read(wake, &count);
        }
        sd_bus_close_unref(bus);
    }

    std::string busName;
    sd_bus* bus = nullptr; // the thread's
    bool isDead = false;   // the thread's
    const int wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    std::mutex mutex;
    std::condition_variable called;
    std::map<std::string, Interfaces> objects;
    std::map<std::string, Method> methods;
    std::map<std::string, int> calls;
    std::deque<std::function<void()>> tasks;
    bool isEnding = false;
    std::thread thread;
};

MockService::MockService(std::string name, Entry entry) : state_(std::make_unique<State>()) {
    state_->busName = std::move(name);
    if (sd_bus_open_system(&state_->bus) < 0 ||
        sd_bus_add_filter(state_->bus, nullptr, State::received, state_.get()) < 0 ||
        (entry == Entry::atOnce && state_->takeName() < 0)) {
        throw std::runtime_error("no " + state_->busName + " on the private bus");
    }
    state_->thread = std::thread([state = state_.get()] { state->work(); });
}

MockService::~MockService() = default;

void MockService::takeName() {
    state_->post([state = state_.get()] { state->takeName(); });
}

void MockService::setProperties(const std::string& path, const std::string& interface,
                                MockProperties properties) {
    const std::lock_guard lock(state_->mutex);
    state_->objects[path][interface] = std::move(properties);
}

void MockService::onCall(const std::string& member, Method method) {
    const std::lock_guard lock(state_->mutex);
    state_->methods[member] = std::move(method);
}

void MockService::emit(const std::string& path, const std::string& interface,
                       const std::string& member, Append arguments) {
    state_->send(
        [path, interface, member](sd_bus* bus, sd_bus_message** message) {
            sd_bus_message_new_signal(bus, message, path.c_str(), interface.c_str(),
                                      member.c_str());
        },
        std::move(arguments));
}

void MockService::call(const std::string& destination, const std::string& path,
                       const std::string& interface, const std::string& member, Append arguments) {
    state_->send(
        [=](sd_bus* bus, sd_bus_message** message) {
            sd_bus_message_new_method_call(bus, message, destination.c_str(), path.c_str(),
                                           interface.c_str(), member.c_str());
            sd_bus_message_set_expect_reply(*message, 0);
        },
        std::move(arguments));
}

void MockService::die() { state_->isDead = true; }

bool MockService::wasCalled(const std::string& member, int count) {
    std::unique_lock lock(state_->mutex);
    return state_->called.wait_for(lock, generous, [&] { return state_->calls[member] >= count; });
}

int MockService::callsOf(const std::string& member) {
    const std::lock_guard lock(state_->mutex);
    return state_->calls[member];
}

} // namespace morvellacinto::native
