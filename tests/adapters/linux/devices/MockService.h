#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <systemd/sd-bus.h>
#include <thread>

namespace morvellacinto::native {

/// A service on the private bus that answers as the test describes, on a thread of its own: what is
/// asked of another path or interface is an error.
class MockService {
public:
    /// Runs on the service's thread; what it does not answer stays unanswered.
    using Method = std::function<void(sd_bus_message* call)>;

    explicit MockService(const char* name);
    MockService(const MockService&) = delete;
    MockService& operator=(const MockService&) = delete;
    /// As `die`.
    ~MockService();

    /// "GetAll" is that of the properties of `interface`.
    void onCall(const std::string& path, const std::string& interface, const std::string& member,
                Method method);
    /// Sends something: `use` gets the connection.
    void send(const std::function<void(sd_bus*)>& use);
    /// Leaves the bus as a crashed service would.
    void die();
    /// Whether `member` is called so many times, before long.
    [[nodiscard]] bool wasCalled(const std::string& member, int times = 1);
    [[nodiscard]] int callsOf(const std::string& member);

private:
    static int received(sd_bus_message* call, void* self, sd_bus_error* error);
    void work();

    std::recursive_mutex mutex_; // methods use the service
    std::condition_variable_any called_;
    sd_bus* bus_ = nullptr;
    std::map<std::string, Method> methods_;
    std::map<std::string, int> calls_;
    std::thread thread_;
};

/// Answers with what sd_bus_message_append makes of types and values, which must live on.
template <class... Values>
MockService::Method answer(const char* types, Values... each) {
    return [=](sd_bus_message* call) { sd_bus_reply_method_return(call, types, each...); };
}

} // namespace morvellacinto::native
