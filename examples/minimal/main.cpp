#include <morvellacinto/Morvellacinto.h>
#include <morvellacinto/native/NativePlatform.h>

#include <iostream>

using namespace morvellacinto;

int main() {
    const auto phone = native::NativePlatform::create({.bundleIdentifier = "com.example.host"});
    platform::install(phone);
    KRAudienceManager manager(Uuid::parse("6E1F3C1A-8C5B-4C0E-9B57-5F3B1D0A7C42"));
    manager.kovraTagsWithCompletion([&](const auto& answer, const auto& error) {
        std::cout << (answer ? writeJson(*answer) : error->domain) << '\n';
        phone->stop();
    });
    phone->run();
    platform::shutdown();
}
