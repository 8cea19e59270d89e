#include "morvellacinto/audience/KRAudienceManager.h"

#include <gmock/gmock.h>

#include <stdexcept>

namespace morvellacinto {
namespace {

TEST(QueryString, joinsOnePairForEachElement) {
    const struct {
        Object tags;
        std::string_view query;
    } cases[] = {
        {{}, ""},
        {{{"empty", Array()}}, ""},
        {{{"seg", Array::of({"a b", "c/d"})}}, "seg=a%20b&seg=c%2Fd"},
        {{{"a", Array::of({"1"})}, {"none", Array()}, {"b", Array::of({""})}}, "a=1&b="},
        {{{"my key", Array::of({"x&y=z"})}}, "my key=x&y=z"},
        {{{"k", Array::of({"\xC3\xA9%\"\\"})}}, "k=%C3%A9%25%22%5C"},
        {{{"k", Array::of({"-._~!$&'()*+,;=:[]"})}}, "k=-._~!$&'()*+,;=:[]"},
        {{{"k", Array::of({std::string_view("\0@", 2)})}}, "k=%00%40"},
    };
    for (const auto& [tags, query] : cases) {
        EXPECT_EQ(KRAudienceManager::toQueryString(tags), query);
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
