// SPDX-License-Identifier: MIT
#include "adapters/linux/NativeFixtures.h"
#include "contract/Contracts.h"
#include "support/FaultServer.h"

namespace morvellacinto::contract {
namespace {

using testing::FaultServer;

struct NativeSubject final : Subject {
    [[nodiscard]] platform::Platform& platform() override { return *platform_; }

    [[nodiscard]] bool pumpUntil(const std::function<bool()>& done) override {
        return native::pumpUntil(*platform_, done);
    }

    [[nodiscard]] std::string serve(int status, const std::string& body) override {
        const std::lock_guard lock(mutex_);
        answer_ = testing::answer(status, body);
        return server_.url("/");
    }
    [[nodiscard]] std::vector<std::string> received() override {
        std::vector<std::string> received;
        for (const FaultServer::Request& request : server_.requests()) {
            received.push_back(request.head + request.body);
        }
        return received;
    }

    const testing::TemporaryDirectory directory_;
    std::mutex mutex_;
    std::string answer_;
    FaultServer server_{nullptr, {.onRequest = [this](auto& connection, const auto&) {
                            const std::lock_guard lock(mutex_);
                            connection.write(answer_);
                        }}};
    const std::shared_ptr<native::NativePlatform> platform_ = native::NativePlatform::create(
        {"com.example.contract", directory_.path(), {}, nullptr, nullptr});
};

} // namespace

std::unique_ptr<Subject> makeSubject() { return std::make_unique<NativeSubject>(); }

} // namespace morvellacinto::contract
