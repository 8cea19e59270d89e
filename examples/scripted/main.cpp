// SPDX-License-Identifier: MIT
// The sample of ScriptedPhone.h.
#include <morvellacinto/Morvellacinto.h>
#include <morvellacinto/scripted/ScriptedPhone.h>

#include <iostream>

using namespace morvellacinto;
using scripted::ScriptedPhone;

int main() {
    auto phone = ScriptedPhone::create();
    platform::install(phone);
    phone->script()->carriers = std::nullopt;
    phone->http().plan({.body = R"({"tags": {}})"});
    KRAudienceManager manager(std::nullopt);
    manager.kovraTagsWithCompletion(
        [](const auto& answer, auto&) { std::cout << writeJson(answer.value()) << '\n'; });
    phone->settle();
    phone->clock().advance(std::chrono::seconds(1)); // the location has come
    phone->settle();
}
