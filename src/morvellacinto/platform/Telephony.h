// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/Interface.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace morvellacinto::platform {

/// The operator of one service; what the platform does not know is absent.
struct Carrier {
    std::optional<std::string> carrierName;
    std::optional<std::string> isoCountryCode;    ///< ISO 3166-1 alpha-2
    std::optional<std::string> mobileNetworkCode; ///< decimal digits
};

/// Telephony information, one object a look. All operations run on the caller's thread, which may
/// be any, and may block it shortly.
class MORVELLACINTO_EXPORT TelephonyInfo : public Interface {
public:
    /// For systems before 12.0. @{
    [[nodiscard]] virtual std::optional<Carrier> subscriberCellularProvider() const = 0;
    [[nodiscard]] virtual std::optional<std::string> currentRadioAccessTechnology() const = 0; ///@}

    /// From 12.0 on: one entry a service, in the platform's order; absent without telephony. An
    /// empty entry is a service without a carrier. @{
    [[nodiscard]] virtual std::optional<std::vector<std::optional<Carrier>>>
    serviceSubscriberCellularProviders() const = 0;
    [[nodiscard]] virtual std::optional<std::vector<std::string>>
    serviceCurrentRadioAccessTechnology() const = 0; ///@}
};

/// Hands out looks at the telephony of this moment.
class MORVELLACINTO_EXPORT Telephony : public Interface {
public:
    /// Never null. Any thread.
    [[nodiscard]] virtual std::unique_ptr<TelephonyInfo> makeInfo() const = 0;
};

} // namespace morvellacinto::platform
