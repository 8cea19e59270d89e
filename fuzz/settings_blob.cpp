// SPDX-License-Identifier: MIT
#include "Require.h"

#include "settings/ValueBlob.h"

using namespace morvellacinto;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto first = native::decodeValue({reinterpret_cast<const char*>(data), size});
    if (first) {
        const std::string blob = native::encodeValue(*first);
        require(blob.size() <= size, "a value takes no more than it was decoded from");
        const auto second = native::decodeValue(blob);
        require(second.has_value(), "what was encoded is decoded");
        require(native::encodeValue(*second) == blob, "decoding changes no bit and no kind");
    }
    return 0;
}
