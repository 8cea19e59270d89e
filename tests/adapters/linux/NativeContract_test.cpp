// SPDX-License-Identifier: MIT
#include "adapters/linux/NativeFixtures.h"
#include "contract/Contracts.h"
#include "support/FaultServer.h"

#include "morvellacinto/platform/Dispatch.h"

#include <gtest/gtest.h>

#include <regex>

namespace morvellacinto::contract {
namespace {

using testing::FaultServer;

class NativeSubject final : public Subject {
public:
    [[nodiscard]] platform::Platform& platform() override { return *platform_; }

    [[nodiscard]] bool pumpUntil(const std::function<bool()>& done) override {
        return native::pumpUntil(*platform_, done);
    }

    // One answer at a time is enough.
    [[nodiscard]] std::string serve(Answer answer) override {
        const std::lock_guard lock(mutex_);
        answer_ = testing::answer(answer.status, answer.body);
        return server_.url("/");
    }
    [[nodiscard]] std::vector<platform::HttpRequest> received() override {
        std::vector<platform::HttpRequest> received;
        for (const FaultServer::Request& request : server_.requests()) {
            platform::HttpRequest& record = received.emplace_back();
            record.method = request.head.substr(0, request.head.find(' '));
            record.body = request.body;
            static const std::regex header("(\\S+): ([^\r]*)");
            for (std::sregex_iterator each(request.head.begin(), request.head.end(), header), end;
                 each != end; ++each) {
                record.headers.push_back({(*each)[1], (*each)[2]});
            }
        }
        return received;
    }

private:
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
