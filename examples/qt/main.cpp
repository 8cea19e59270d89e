// SPDX-License-Identifier: MIT
// A host on Qt's event loop.

#include <morvellacinto/Morvellacinto.h>
#include <morvellacinto/native/NativePlatform.h>

#include <QCoreApplication>
#include <QSocketNotifier>

#include <exception>
#include <iostream>

using namespace morvellacinto;

int main(int count, char** arguments) {
    const QCoreApplication application(count, arguments);
    const auto phone = native::NativePlatform::create({.bundleIdentifier = "com.example.qt"});
    platform::install(phone);

    const QSocketNotifier notifier(phone->descriptor(), QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, &application, [&phone] {
        // Qt's event loop does not carry exceptions.
        try {
            phone->drain();
        } catch (const std::exception& error) {
            std::cerr << error.what() << '\n';
        }
    });

    KRAudienceManager manager(Uuid::parse("6E1F3C1A-8C5B-4C0E-9B57-5F3B1D0A7C42"));
    manager.kovraTagsWithCompletion([](const auto& answer, const auto& error) {
        std::cout << (answer ? writeJson(*answer) : writeJson(error->userInfo)) << '\n';
        QCoreApplication::quit();
    });
    const int status = QCoreApplication::exec();
    platform::shutdown();
    return status;
}
