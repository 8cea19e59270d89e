// SPDX-License-Identifier: MIT
#include "morvellacinto/settings/KRSettingsManager.h"

#include "support/ScriptedPhoneTest.h"

namespace morvellacinto {

using namespace KRSettingsManager;

struct Settings : ScriptedPhoneTest {
    scripted::ScriptedUserDefaults& defaults = phone->standardUserDefaults();
};

TEST_F(Settings, StandUnderThePrefixAndAreFlushedAtOnceAndRemovedWithOneFlush) {
    for (const std::string& key : {std::string("KRServiceURL"), std::string(200, 'k')}) {
        const std::string full = "se.kovra.v5." + key;
        EXPECT_TRUE(setLocalSetting("value", key));
        EXPECT_EQ(localSettingForKey(key), Value("value"));
        EXPECT_EQ(defaults.flushed().at(full), Value("value"));
        EXPECT_TRUE(removeLocalSettingForKey(key) && removeLocalSettingForKey(key));
        EXPECT_THAT(defaults.takeOperations(),
                    ElementsAre("set " + full, "synchronize", "get " + full, "get " + full,
                                "remove " + full, "synchronize", "get " + full));
    }
    EXPECT_EQ(fullKey(std::nullopt), "se.kovra.v5.(null)");
}

TEST_F(Settings, KeepTheOldValueWhenTheNewOneIsRefused) {
    const char* const null = nullptr;
    ASSERT_TRUE(setLocalSetting("old", "key"));
    EXPECT_FALSE(setLocalSetting(std::nullopt, "key"));
    EXPECT_FALSE(setLocalSetting("new", null));
    EXPECT_FALSE(setLocalSetting(Value(nullptr), "key"));
    expectLog({});
    EXPECT_FALSE(setLocalSetting(Object{{"deep", Array::of({nullptr})}}, "key"));
    expectLog({"storing failed"});
    EXPECT_EQ(localSettingForKey("key"), Value("old"));
}

TEST_F(Settings, TellAFailureOfThePlatformButNotWhenItRefusesARemoval) {
    defaults.failFlush(true);
    EXPECT_FALSE(setLocalSetting("new", "key"));
    EXPECT_FALSE(removeLocalSettingForKey("key"));
    defaults.failFlush(false);
    ASSERT_TRUE(setLocalSetting("new", "key"));
    defaults.raiseOnRemove(true);
    EXPECT_TRUE(removeLocalSettingForKey("key"));
    expectLog({"removing failed"});
    defaults.raiseOnGet(true);
    EXPECT_ANY_THROW(static_cast<void>(localSettingForKey("key")));
}

} // namespace morvellacinto
