#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

struct sd_bus_message;

namespace morvellacinto::native {

/// Appends values to a message.
using Append = std::function<void(sd_bus_message*)>;
using MockProperties = std::map<std::string, Append>;

/// Variants for properties.
[[nodiscard]] Append text(std::string value);
[[nodiscard]] Append path(std::string value);
[[nodiscard]] Append bytes(std::string value);
[[nodiscard]] Append number(double value);
[[nodiscard]] Append unsignedNumber(unsigned value);
[[nodiscard]] Append boolean(bool value);

/// A service on the private bus with objects that the test describes. It answers
/// `Properties.GetAll`, `Properties.Set` and `ObjectManager.GetManagedObjects` by itself, on a
/// thread of its own; for any other method the test says what to do.
class MockService {
public:
    /// Runs on the service's thread; what it does not answer stays unanswered.
    using Method = std::function<void(sd_bus_message* call)>;

    /// Whether to own the name at once, or only from `takeName` on.
    enum class Entry { atOnce, later };

    explicit MockService(std::string name, Entry entry = Entry::atOnce);
    MockService(const MockService&) = delete;
    MockService& operator=(const MockService&) = delete;
    /// Leaves the bus without answering what waits.
    ~MockService();

    /// Takes the name, also from a service that has it. Waits for nothing.
    void takeName();
    void setProperties(const std::string& path, const std::string& interface,
                       MockProperties properties);
    void onCall(const std::string& member, Method method);
    /// Emits a signal; waits for nothing.
    void emit(const std::string& path, const std::string& interface, const std::string& member,
              Append arguments);
    /// Calls a method of another service; waits for nothing.
    void call(const std::string& destination, const std::string& path, const std::string& interface,
              const std::string& member, Append arguments);
    /// Leaves the bus as a crashed service would. For the service's thread.
    void die();

    /// Returns once `member` has been called `count` times in all; false when that never happens.
    [[nodiscard]] bool wasCalled(const std::string& member, int count = 1);
    /// How often so far.
    [[nodiscard]] int callsOf(const std::string& member);

private:
    struct State;
    const std::unique_ptr<State> state_;
};

/// Answers a call with values.
void reply(sd_bus_message* call, const Append& values);
void replyError(sd_bus_message* call, const std::string& name, const std::string& message);

} // namespace morvellacinto::native
