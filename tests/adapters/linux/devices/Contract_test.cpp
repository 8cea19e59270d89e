#include "Child.h"
#include "PrivateBus.h"
#include "adapters/linux/NativeFixtures.h"
#include "contract/Contracts.h"

#include "morvellacinto/platform/Dispatch.h"

#include <optional>
#include <stdexcept>

namespace morvellacinto::contract {
namespace {

// The native platform among mocked services; without dbusmock, on a bus without any.
class MockedSubject final : public Subject {
public:
    MockedSubject() {
        mocks_.emplace(std::vector<std::string>{"/usr/bin/python3", MORVELLACINTO_MOCKS});
        if (mocks_->readLine() != "ready") {
            [] { GTEST_SKIP() << "no dbusmock: the bus has no services"; }();
        }
    }

    [[nodiscard]] platform::Platform& platform() override { return *platform_; }
    [[nodiscard]] bool pumpUntil(const std::function<bool()>& done) override {
        return native::pumpUntil(*platform_, done);
    }
    void settle() override {
        auto token = std::make_shared<int>();
        platform::Dispatch& dispatch = platform_->dispatch();
        dispatch.asyncGlobal([&dispatch, token] { dispatch.asyncMain([token] {}); });
        EXPECT_TRUE(pumpUntil([&] { return token.use_count() == 1; }));
    }

    [[nodiscard]] std::string serve(Answer /*answer*/) override {
        throw std::logic_error("no server");
    }
    [[nodiscard]] std::vector<platform::HttpRequest> received() override { return {}; }
    [[nodiscard]] std::string deadUrl() override { throw std::logic_error("no server"); }

private:
    native::PrivateBus daemon_;
    std::optional<native::Child> mocks_;
    native::TemporaryDirectory directory_;
    std::shared_ptr<native::NativePlatform> platform_ =
        native::NativePlatform::create({"com.example.contract", directory_.path(), {}, {}, {}});
};

const Implementation mockedPhone{"MockedPhone", [] { return std::make_unique<MockedSubject>(); }};

INSTANTIATE_TEST_SUITE_P(MockedPhone, LocationContract, ::testing::Values(mockedPhone));
INSTANTIATE_TEST_SUITE_P(MockedPhone, DeviceContract, ::testing::Values(mockedPhone));
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(DispatchContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(UserDefaultsContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(HttpSessionContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(UrlParserContract);

} // namespace
} // namespace morvellacinto::contract
