// SPDX-License-Identifier: MIT
#include "Require.h"

#include "morvellacinto/audience/KRAudienceManager.h"

using namespace morvellacinto;

namespace {

constexpr std::string_view digits = "0123456789ABCDEF";
constexpr std::string_view unchanged = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                       "0123456789-._~!$&'()*+,;=:[]";

bool isUnchanged(char byte) { return unchanged.find(byte) != std::string_view::npos; }

// Undoes percent-encoding, and requires that just what needs it is encoded.
std::string decoded(std::string_view text) {
    std::string bytes;
    while (!text.empty()) {
        if (text.front() != '%') {
            require(isUnchanged(text.front()), "no byte stands for itself that may not");
            bytes += text.front();
            text.remove_prefix(1);
            continue;
        }
        require(text.size() >= 3, "two digits follow a percent sign");
        const std::size_t high = digits.find(text[1]);
        const std::size_t low = digits.find(text[2]);
        require(high < 16 && low < 16, "they are upper-case hexadecimal");
        bytes += static_cast<char>(high << 4 | low);
        require(!isUnchanged(bytes.back()), "no byte is encoded that need not be");
        text.remove_prefix(3);
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
