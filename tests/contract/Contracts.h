#pragma once

// The contracts of the platform interfaces as test suites for any implementation. A test program
// links morvellacinto_contract, writes a Subject for its implementation and says
//     MORVELLACINTO_INSTANTIATE_CONTRACTS(Mine, [] { return std::make_unique<MySubject>(); });

#include "morvellacinto/platform/HttpSession.h"
#include "morvellacinto/platform/Platform.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace morvellacinto::contract {

struct Answer {
    int status = 200;
    std::string body;
};

/// One implementation under test and the handles that a test needs. Made and used on the thread
/// that is to be the main one.
class Subject {
public:
    Subject() = default;
    Subject(const Subject&) = delete;
    Subject& operator=(const Subject&) = delete;
    virtual ~Subject() = default;

    [[nodiscard]] virtual platform::Platform& platform() = 0;

    /// Lets main queue, background work and transfers go on until `done` holds; false when it does
    /// not within any reasonable time. An exception that escaped from a block leaves through here.
    [[nodiscard]] virtual bool pumpUntil(const std::function<bool()>& done) = 0;
    /// Lets happen what is due at this moment, for tests that nothing does; also after shutdown.
    virtual void settle() = 0;

    /// An absolute URL at which each request is recorded and answered with `answer`.
    [[nodiscard]] virtual std::string serve(Answer answer) = 0;
    /// The requests that have reached `serve`'s URLs, oldest first, with all the headers that
    /// arrived.
    [[nodiscard]] virtual std::vector<platform::HttpRequest> received() = 0;
    /// A URL at which nobody answers: requests fail.
    [[nodiscard]] virtual std::string deadUrl() = 0;
};

struct Implementation {
    const char* name;
    std::function<std::unique_ptr<Subject>()> makeSubject;

    friend std::ostream& operator<<(std::ostream& out, const Implementation& shown) {
        return out << shown.name;
    }
};

class Contract : public ::testing::TestWithParam<Implementation> {
protected:
    [[nodiscard]] Subject& subject() { return *subject_; }
    [[nodiscard]] platform::Platform& platform() { return subject_->platform(); }
    [[nodiscard]] bool pumpUntil(const std::function<bool()>& done) {
        return subject_->pumpUntil(done);
    }

private:
    const std::unique_ptr<Subject> subject_ = GetParam().makeSubject();
};

class DispatchContract : public Contract {};
class UserDefaultsContract : public Contract {};
class HttpSessionContract : public Contract {};
class UrlParserContract : public Contract {};
class LocationContract : public Contract {};
class DeviceContract : public Contract {};

} // namespace morvellacinto::contract

#define MORVELLACINTO_INSTANTIATE_CONTRACTS(name, ...)                                             \
    namespace morvellacinto::contract {                                                            \
    static const Implementation implementation{#name, __VA_ARGS__};                                \
    INSTANTIATE_TEST_SUITE_P(name, DispatchContract, ::testing::Values(implementation));           \
    INSTANTIATE_TEST_SUITE_P(name, UserDefaultsContract, ::testing::Values(implementation));       \
    INSTANTIATE_TEST_SUITE_P(name, HttpSessionContract, ::testing::Values(implementation));        \
    INSTANTIATE_TEST_SUITE_P(name, UrlParserContract, ::testing::Values(implementation));          \
    INSTANTIATE_TEST_SUITE_P(name, LocationContract, ::testing::Values(implementation));           \
    INSTANTIATE_TEST_SUITE_P(name, DeviceContract, ::testing::Values(implementation));             \
    }                                                                                              \
    static_assert(true)
