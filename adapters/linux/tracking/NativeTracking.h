// SPDX-License-Identifier: MIT
#pragma once

#include "KeptValues.h"

#include "morvellacinto/platform/Tracking.h"

#include <functional>
#include <memory>

namespace morvellacinto::native {

class MainQueue;

/// A random advertising identifier per user and application, given out only while the user permits
/// tracking, and the question whether the user does. All operations may be called on any thread.
class NativeTracking final : public platform::Tracking {
public:
    /// Asks the user, on the main queue, and hands the answer over once, on any thread.
    using Question = std::function<void(std::function<void(std::uint64_t status)> answer)>;

    /// Without a question the answer is that tracking is denied.
    NativeTracking(std::shared_ptr<MainQueue> mainQueue, const KeptValues& kept, Question question);
    ~NativeTracking() override;

    /// All zero unless tracking is authorized.
    [[nodiscard]] std::optional<Uuid> advertisingIdentifier() const override;
    [[nodiscard]] bool isAdvertisingTrackingEnabled() const override;
    [[nodiscard]] std::uint64_t trackingAuthorizationStatus() const override;
    /// While a question is pending, further answers wait for the same one; once there is a status
    /// other than 0, it is the answer. Answers run on the main queue. A question that is dropped
    /// without an answer, and an answer that is no status, count as denied for this process.
    void requestTrackingAuthorization(Answer answer) override;

    /// The user wants to be somebody else from now on.
    void resetAdvertisingIdentifier();
    /// The user changed their mind; 0 has them asked again. In this process that holds in any case;
    /// false when it could not be stored for the next. Throws std::invalid_argument for what is no
    /// status.
    [[nodiscard]] bool setTrackingAuthorization(std::uint64_t status);

private:
    class Decision;
    const std::shared_ptr<Decision> decision_;
};

} // namespace morvellacinto::native
