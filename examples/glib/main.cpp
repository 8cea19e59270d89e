// SPDX-License-Identifier: MIT
// A host on GLib's main loop.

#include <morvellacinto/Morvellacinto.h>
#include <morvellacinto/native/NativePlatform.h>

#include <glib-unix.h>

#include <exception>
#include <iostream>

using namespace morvellacinto;

namespace {

gboolean drain(gint /*descriptor*/, GIOCondition /*condition*/, gpointer data) {
    // GLib is C: an exception must not pass through it.
    try {
        static_cast<native::NativePlatform*>(data)->drain();
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
    }
    return G_SOURCE_CONTINUE;
}

} // namespace

int main() {
    const auto phone = native::NativePlatform::create({.bundleIdentifier = "com.example.glib"});
    platform::install(phone);

    GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
    const guint source = g_unix_fd_add(phone->descriptor(), G_IO_IN, &drain, phone.get());

    KRAudienceManager manager(Uuid::parse("6E1F3C1A-8C5B-4C0E-9B57-5F3B1D0A7C42"));
    manager.kovraTagsWithCompletion([loop](const auto& answer, const auto& error) {
        std::cout << (answer ? writeJson(*answer) : writeJson(error->userInfo)) << '\n';
        g_main_loop_quit(loop);
    });
    g_main_loop_run(loop);

    platform::shutdown();
    g_source_remove(source);
    g_main_loop_unref(loop);
}
