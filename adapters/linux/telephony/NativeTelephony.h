// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/Telephony.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace morvellacinto::native {

class Bus;

/// The name of the newest radio technology in a set of ModemManager's access technology bits, such
/// as "LTE"; null when it names none.
[[nodiscard]] const char* nameOfTechnology(std::uint32_t accessTechnologies);

/// The ISO 3166-1 alpha-2 code, in lower case, of the country that a mobile country code (three
/// digits) is assigned to. Nothing for international networks and for what is no such code.
[[nodiscard]] std::optional<std::string> countryOfMobileCode(std::string_view mobileCountryCode);

/// Telephony by ModemManager: each modem is a service, in the order of their numbers.
/// A carrier is the one that the SIM names. A SIM that holds no name takes it from the network that
/// it is registered with, if that is its own; without a SIM to read, the carrier is that network.
class NativeTelephony final : public platform::Telephony {
public:
    /// `bus` must outlive this.
    explicit NativeTelephony(Bus& bus) : bus_(bus) {}

    /// Asks the bus.
    [[nodiscard]] std::unique_ptr<platform::TelephonyInfo> makeInfo() const override;

private:
    Bus& bus_;
};

} // namespace morvellacinto::native
