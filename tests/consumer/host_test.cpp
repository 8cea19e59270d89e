// SPDX-License-Identifier: MIT
// How a host tests its own code: on a scripted phone, with a planned answer of the service.
#include <morvellacinto/Morvellacinto.h>
#include <morvellacinto/scripted/ScriptedPhone.h>

#include <cstdlib>

using namespace morvellacinto;

int main() {
    const auto phone = scripted::ScriptedPhone::create();
    platform::install(phone);
    phone->script()->location.servicesEnabled = false;
    phone->http().plan({.body = R"({"tags": {"place": ["north"]}})"});

    KRAudienceManager manager(std::nullopt);
    manager.kovraTagsWithCompletion([](const auto&, const auto&) {});
    phone->settle();

    const auto tags = manager.cachedTags(KRTagsTypeTags);
    const bool isRight =
        tags && KRAudienceManager::toQueryString(tags->asObject()) == "place=north";
    const std::string version = std::to_string(MORVELLACINTO_VERSION_MAJOR) + "." +
                                std::to_string(MORVELLACINTO_VERSION_MINOR) + "." +
                                std::to_string(MORVELLACINTO_VERSION_PATCH);
    platform::shutdown();
    return isRight && version == versionText() ? EXIT_SUCCESS : EXIT_FAILURE;
}
