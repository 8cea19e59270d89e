// SPDX-License-Identifier: MIT
// Attacks the loading of the library: `loading ROUNDS`. It comes with a plug-in, is used, shut down
// while the look-up of a name hangs, and unloaded before that has ended.

#include "SilentNameServer.h"
#include "support/ProcessCounts.h"
#include "support/ShutdownLimit.h"
#include "support/TemporaryDirectory.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <thread>

using namespace morvellacinto::testing;

namespace {

std::unique_ptr<SilentNameServer> names;
int faults = 0;

void require(bool holds, const char* what) {
    if (!holds) {
        ++faults;
        std::printf("not so: %s\n", what);
    }
}

void loadAndUnload(const TemporaryDirectory& directory) {
    const auto threads = threadCount();
    const auto descriptors = descriptorCount();
    void* const host = dlopen(MORVELLACINTO_LOADED_HOST, RTLD_NOW | RTLD_LOCAL);
    require(threadCount() == threads && descriptorCount() == descriptors, "loading starts nothing");
    const auto use = reinterpret_cast<int (*)(const char*, const char*, void (*)())>(
        dlsym(host, "useThePlatform"));
    const int took = use("https://audience.test/", directory.path().c_str(),
                         [] { require(names->isAsked(), "the name is looked up"); });
    require(took < shutdownLimit / std::chrono::milliseconds(1), "a quick shutdown");
    dlclose(host);
    require(dlopen(MORVELLACINTO_LOADED_HOST, RTLD_NOW | RTLD_NOLOAD) == nullptr, "it is unloaded");
    for (int i = 0; i < 3000 && threadCount() > threads; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    require(threadCount() == threads && descriptorCount() == descriptors, "nothing remains");
}

} // namespace

int main(int, char** arguments) {
    const TemporaryDirectory directory;
    names = SilentNameServer::start();
    if (names == nullptr) {
        std::puts("not attacked: no right to make a network");
        return 0;
    }
    for (int round = 0; round < std::atoi(arguments[1]); ++round) {
        loadAndUnload(directory);
    }
    std::printf("%d faults\n", faults);
    return faults == 0 ? 0 : 1;
}
