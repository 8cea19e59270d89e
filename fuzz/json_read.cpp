#include "Require.h"

#include "morvellacinto/foundation/Json.h"

#include <nlohmann/json.hpp>

using namespace morvellacinto;

namespace {

// Where the second reader is more lenient on purpose: deep nesting, scalars at the top, and zero
// bytes behind the text.
bool isComparable(std::string_view text, const nlohmann::json& read) {
    std::size_t openings = 0;
    for (const char character : text) {
        openings += character == '[' || character == '{' ? 1U : 0U;
    }
    return openings <= maximumJsonDepth && (read.is_discarded() || read.is_structured()) &&
           text.find('\0') == std::string_view::npos;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::optional<Value> mine = readJson(text);
    const nlohmann::json theirs = nlohmann::json::parse(text, nullptr, false);
    if (isComparable(text, theirs)) {
        require(mine.has_value() == !theirs.is_discarded(), "both readers give the same verdict");
        if (mine) {
            require(nlohmann::json::parse(writeJson(*mine)) == theirs,
                    "both readers give the same value");
        }
    }
    return 0;
}
