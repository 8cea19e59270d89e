// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string_view>

namespace morvellacinto::native {

/// Where the adapter tells what went wrong underneath it (a database set aside, a bus that is
/// gone): one sentence a call, on any thread, with no lock held. Never empty; never throws.
using Diagnostics = std::function<void(std::string_view sentence)>;

} // namespace morvellacinto::native
