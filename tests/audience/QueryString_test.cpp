#include "morvellacinto/audience/KRAudienceManager.h"

#include <gmock/gmock.h>

#include <stdexcept>

namespace morvellacinto {
namespace {

TEST(QueryString, joinsOnePairForEachElement) {
    const std::string key(15, 'k');
    const std::string longKey(4000, 'k');
    const struct {
        Object tags;
        std::string query;
    } cases[] = {
        {{}, ""},
        {{{"empty", Array()}}, ""},
        {{{"a", Array::of({"1"})}, {"none", Array()}, {"b", Array::of({""})}}, "a=1&b="},
        {{{"my key", Array::of({"x&y=z"})}}, "my key=x&y=z"},
        {{{key, Array::of({"1", "2"})}, {key + "k", Array::of({"3"})}},
         key + "=1&" + key + "=2&" + key + "k=3"},
        {{{longKey, Array::of({"1", "2"})}}, longKey + "=1&" + longKey + "=2"},
        {{{"k", Array::of({"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"})}},
         "k=%C3%A9%E2%82%AC%F0%9F%98%80"},
    };
    for (const auto& [tags, query] : cases) {
        EXPECT_EQ(KRAudienceManager::toQueryString(tags), query);
    }
}

TEST(QueryString, encodesEachAsciiCharacterButTheAllowedOnes) {
    const std::string_view encoded[128] = {
        "%00", "%01", "%02", "%03", "%04", "%05", "%06", "%07", "%08", "%09", "%0A", "%0B", "%0C",
        "%0D", "%0E", "%0F", "%10", "%11", "%12", "%13", "%14", "%15", "%16", "%17", "%18", "%19",
        "%1A", "%1B", "%1C", "%1D", "%1E", "%1F", "%20", "!",   "%22", "%23", "$",   "%25", "&",
        "'",   "(",   ")",   "*",   "+",   ",",   "-",   ".",   "%2F", "0",   "1",   "2",   "3",
        "4",   "5",   "6",   "7",   "8",   "9",   ":",   ";",   "%3C", "=",   "%3E", "%3F", "%40",
        "A",   "B",   "C",   "D",   "E",   "F",   "G",   "H",   "I",   "J",   "K",   "L",   "M",
        "N",   "O",   "P",   "Q",   "R",   "S",   "T",   "U",   "V",   "W",   "X",   "Y",   "Z",
        "[",   "%5C", "]",   "%5E", "_",   "%60", "a",   "b",   "c",   "d",   "e",   "f",   "g",
        "h",   "i",   "j",   "k",   "l",   "m",   "n",   "o",   "p",   "q",   "r",   "s",   "t",
        "u",   "v",   "w",   "x",   "y",   "z",   "%7B", "%7C", "%7D", "~",   "%7F"};
    for (int byte = 0; byte < 128; ++byte) {
        const std::string value(1, static_cast<char>(byte));
        EXPECT_EQ(KRAudienceManager::toQueryString({{"k", Array::of({value})}}),
                  "k=" + std::string(encoded[byte]));
    }
}

TEST(QueryString, encodesValuesOfEveryLength) {
    std::string value;
    std::string encoded;
    for (int size = 0; size < 10'000; size += 3) {
        const Array values = Array::of({value, "x", value});
        EXPECT_TRUE(KRAudienceManager::toQueryString({{"k", values}}) ==
                    "k=" + encoded + "&k=x&k=" + encoded)
            << size;
        value += size % 2 == 0 ? "\xE2\x82\xAC" : "a b";
        encoded += size % 2 == 0 ? "%E2%82%AC" : "a%20b";
    }
}

TEST(QueryString, namesAMemberThatIsNoArrayOfStrings) {
    const auto messageFor = [](const Object& tags) -> std::string {
        try {
            return KRAudienceManager::toQueryString(tags);
        } catch (const std::invalid_argument& error) {
            return error.what();
        }
    };
    EXPECT_EQ(messageFor({{"ok", Array::of({"1"})}, {"seg", "text"}}),
              "a query string needs arrays of strings; the member \"seg\" holds a string");
    EXPECT_EQ(messageFor({{"seg", Array::of({"1", 2})}}),
              "a query string needs arrays of strings; the member \"seg\" holds an array with an "
              "integer");
}

} // namespace
} // namespace morvellacinto
