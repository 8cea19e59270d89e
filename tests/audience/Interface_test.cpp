#include "morvellacinto/Morvellacinto.h"
#include "support/ScriptedPhoneTest.h"

namespace morvellacinto {
namespace {

// What must not compile.
template <class... Arguments>
concept Requestable = requires(Arguments... arguments) {
    KRRequest::requestWithType(KRRequestTypePost, arguments...);
};
template <class Key>
concept Member = requires(Object object, Key key) {
    object.set(key, 1);
};

static_assert(std::is_constructible_v<KRAudienceManager, Uuid, int>);
static_assert(!std::is_constructible_v<KRAudienceManager, Uuid, double>);
static_assert(Requestable<const char*, KRRequest::Params>);
static_assert(!Requestable<const char*, Object>, "no payload becomes parameters");
static_assert(!Requestable<std::nullptr_t>);
static_assert(!std::is_assignable_v<KRRequest&, KRRequest> &&
                  !std::is_nothrow_move_constructible_v<KRRequest>,
              "a request never changes");
static_assert(Member<const char*> && Member<std::string> && !Member<std::nullptr_t>);

class Interface : public ScriptedPhoneTest {};

TEST_F(Interface, takesANullPointerForNothingWhereNothingIsAllowed) {
    const char* const null = nullptr;
    KRAudienceManager manager(std::nullopt, 3, null);
    EXPECT_EQ(manager.trackId(), std::nullopt);
    manager.setTrackId(nullptr);
    EXPECT_EQ(manager.trackId(), std::nullopt);
    EXPECT_EQ(KRRequest::nativeToHttpData(nullptr), std::nullopt);
    EXPECT_FALSE(KRSettingsManager::setLocalSetting(1, null));
    EXPECT_EQ(KRSettingsManager::localSettingForKey(null), std::nullopt);
}

TEST_F(Interface, takesEnumerationsForTheirIntegersAndPayloadsThatAreTemporaries) {
    phone->script()->reachabilityFlags = 2;
    KRAudienceManager first(std::nullopt);
    KRAudienceManager manager = std::move(first);
    manager.collect(Object{{"connection", KRNetworkManager::currentReachabilityStatus()}}, nullptr);
    EXPECT_EQ(phone->http().requests().at(0).request.body, R"({"connection":1})");
}

} // namespace
} // namespace morvellacinto
