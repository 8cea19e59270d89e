#include "contract/Contracts.h"

#include "morvellacinto/platform/UrlParser.h"

#include <string_view>

namespace morvellacinto::contract {
namespace {

using namespace std::string_view_literals;

TEST_P(UrlParserContract, GivesAbsoluteUrlsAndNothingForOtherText) {
    const platform::UrlParser& parser = platform().urlParser();
    for (const auto text :
         {"https://audience.example/v5/audience/"sv, "https://audience.example/v5//audience/"sv,
          "http://127.0.0.1:8080/x?y=%C3%A5&z"sv, "https://[::1]:8443/"sv}) {
        EXPECT_EQ(parser.parse(text), text);
    }
    EXPECT_TRUE(parser.parse("ftp://files.example/x").has_value())
        << "which schemes are opened is the session's business";
    for (const auto text :
         {""sv, " "sv, "audience.example"sv, "/v5/audience/"sv, "5/audience/"sv, "https://"sv,
          "https://exa mple/"sv, "https://example/\0"sv, "https://example/\n"sv, "://example"sv,
          "https://example:99999/"sv, "{\"a\":1}/audience/"sv}) {
        EXPECT_EQ(parser.parse(text), std::nullopt) << text;
    }
}

} // namespace
} // namespace morvellacinto::contract
