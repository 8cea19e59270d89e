// SPDX-License-Identifier: MIT
#include "Require.h"

#include "morvellacinto/foundation/Json.h"

using namespace morvellacinto;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto first = readJson({reinterpret_cast<const char*>(data), size});
    if (first) {
        const std::string text = writeJson(*first);
        const auto second = readJson(text);
        require(second.has_value(), "what was written is JSON");
        require(*second == *first, "what was written reads back to the same value");
        require(writeJson(*second) == text, "writing again gives the same text");
    }
    return 0;
}
