#include "morvellacinto/settings/KRSettingsManager.h"

#include "support/ScriptedPhoneTest.h"

#include <gmock/gmock.h>

namespace morvellacinto {
namespace {

using namespace KRSettingsManager;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Settings : public ScriptedPhoneTest {};

TEST_F(Settings, standUnderThePrefixAndAreFlushedAtOnce) {
    EXPECT_TRUE(setLocalSetting("https://x.invalid", "KRServiceURL"));
    EXPECT_EQ(localSettingForKey("KRServiceURL"), Value("https://x.invalid"));
    EXPECT_EQ(phone->standardUserDefaults().flushed().at("se.kovra.v5.KRServiceURL"),
              Value("https://x.invalid"));
    EXPECT_EQ(fullKey(std::nullopt), "se.kovra.v5.(null)");
    const std::string longKey(200, 'k');
    EXPECT_TRUE(setLocalSetting(1, longKey));
    EXPECT_EQ(phone->standardUserDefaults().flushed().at("se.kovra.v5." + longKey), Value(1));
}

TEST_F(Settings, keepTheOldValueWhenTheNewOneIsRefused) {
    ASSERT_TRUE(setLocalSetting("old", "key"));
    EXPECT_FALSE(setLocalSetting(std::nullopt, "key"));
    EXPECT_FALSE(setLocalSetting("new", std::nullopt));
    EXPECT_FALSE(setLocalSetting(Value(nullptr), "key"));
    EXPECT_THAT(phone->takeLog(), IsEmpty());
    EXPECT_FALSE(setLocalSetting(Object{{"deep", Array::of({nullptr})}}, "key"));
    EXPECT_THAT(phone->takeLog(), ElementsAre("storing failed"));
    EXPECT_EQ(localSettingForKey("key"), Value("old"));
}

TEST_F(Settings, tellWhetherAFlushFailed) {
    ASSERT_TRUE(setLocalSetting("old", "key"));
    phone->standardUserDefaults().failFlush(true);
    EXPECT_FALSE(setLocalSetting("new", "key"));
    EXPECT_EQ(localSettingForKey("key"), Value("new"));
    EXPECT_FALSE(removeLocalSettingForKey("key"));
    EXPECT_EQ(localSettingForKey("key"), std::nullopt);
}

TEST_F(Settings, areRemovedWithOneFlushAndNoneWhenThereIsNothing) {
    ASSERT_TRUE(setLocalSetting("value", "key"));
    static_cast<void>(phone->standardUserDefaults().takeOperations());
    EXPECT_TRUE(removeLocalSettingForKey("key"));
    EXPECT_TRUE(removeLocalSettingForKey("key"));
    EXPECT_THAT(phone->standardUserDefaults().takeOperations(),
                ElementsAre("get se.kovra.v5.key", "remove se.kovra.v5.key", "synchronize",
                            "get se.kovra.v5.key"));
}

TEST_F(Settings, answerAFailureOfThePlatformDifferently) {
    ASSERT_TRUE(setLocalSetting("value", "key"));
    phone->standardUserDefaults().raiseOnSet(true);
    phone->standardUserDefaults().raiseOnRemove(true);
    EXPECT_FALSE(setLocalSetting("new", "key"));
    EXPECT_TRUE(removeLocalSettingForKey("key"));
    EXPECT_THAT(phone->takeLog(), ElementsAre("storing failed", "removing failed"));
    phone->standardUserDefaults().raiseOnGet(true);
    EXPECT_ANY_THROW(static_cast<void>(localSettingForKey("key")));
}

TEST(SettingsWithoutAPlatform, throwBeforeTheyEnterAGuard) {
    EXPECT_THROW(setLocalSetting("value", "key"), std::logic_error);
    EXPECT_THROW(removeLocalSettingForKey("key"), std::logic_error);
}

} // namespace
} // namespace morvellacinto
