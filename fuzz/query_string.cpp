#include "Require.h"

#include "morvellacinto/audience/KRAudienceManager.h"

using namespace morvellacinto;

namespace {

// Undoes percent-encoding that is well-formed.
std::string decoded(std::string_view text) {
    std::string bytes;
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] == '%') {
            bytes +=
                static_cast<char>(std::stoi(std::string(text.substr(index + 1, 2)), nullptr, 16));
            index += 2;
        } else {
            bytes += text[index];
        }
    }
    return bytes;
}

} // namespace

// The input, cut at line feeds, becomes the values of one member.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    Array values;
    std::size_t length = 0;
    while (true) {
        const std::string_view value = rest.substr(0, rest.find('\n'));
        values.append(value);
        const std::string pair = KRAudienceManager::toQueryString({{"k", Array::of({value})}});
        require(pair.starts_with("k=") && decoded(pair.substr(2)) == value,
                "a value decodes to itself");
        length += pair.size() + 1;
        if (value.size() == rest.size()) {
            break;
        }
        rest.remove_prefix(value.size() + 1);
    }
    require(KRAudienceManager::toQueryString({{"k", values}}).size() + 1 == length,
            "pairs are joined by one character each");
    return 0;
}
