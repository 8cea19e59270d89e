#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <systemd/sd-bus.h>

namespace morvellacinto::native {

/// Appends values to a message.
using Append = std::function<void(sd_bus_message*)>;
using MockProperties = std::map<std::string, Append>;

/// Appends what sd_bus_message_append does of a type and values, which must live on.
template <class... Values>
Append values(const char* type, Values... each) {
    return [=](sd_bus_message* message) { sd_bus_message_append(message, type, each...); };
}
/// The same in a variant, for a property.
template <class... Values>
Append property(const char* type, Values... each) {
    return values("v", type, each...);
}

/// Answers a call.
void reply(sd_bus_message* call, const Append& append = values(""));

/// A service on the private bus with the objects that the test describes: what is asked of another
/// path or interface is an error. It works on a thread of its own.
class MockService {
public:
    /// Runs on the service's thread; what it does not answer stays unanswered.
    using Method = std::function<void(sd_bus_message* call)>;

    explicit MockService(const char* name);
    MockService(const MockService&) = delete;
    MockService& operator=(const MockService&) = delete;
    /// As `die`.
    ~MockService();

    void setProperties(const std::string& path, const std::string& interface,
                       MockProperties properties);
    void onCall(const std::string& path, const std::string& interface, const std::string& member,
                Method method);
    void emit(const std::string& path, const char* interface, const char* member,
              const Append& arguments);
    /// Calls a method of another service, and waits for nothing.
    void call(const char* destination, const char* path, const char* interface, const char* member,
              const Append& arguments);
    /// Leaves the bus as a crashed service would.
    void die();

    /// How often `member` has been called, waiting for the call of number `atLeast`.
    [[nodiscard]] int callsOf(const std::string& member, int atLeast = 0);
    [[nodiscard]] bool wasCalled(const std::string& member, int times = 1) {
        return callsOf(member, times) >= times;
    }

private:
    struct State;
    const std::unique_ptr<State> state_;
};

} // namespace morvellacinto::native
