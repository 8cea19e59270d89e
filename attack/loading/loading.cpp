// SPDX-License-Identifier: MIT
// Attacks the loading of the library: `loading ROUNDS`. It comes with a plug-in, is used, shut down
// while the look-up of a name hangs, and unloaded before that has ended.

#include "support/ProcessCounts.h"
#include "support/ShutdownLimit.h"
#include "support/TemporaryDirectory.h"

#include <dlfcn.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <thread>

using namespace morvellacinto::testing;

namespace {

int nameServer = -1;
int faults = 0;

void require(bool holds, const char* what) {
    if (!holds) {
        ++faults;
        std::printf("not so: %s\n", what);
    }
}

// Where nothing but a name server is, that answers no question. False where that is not allowed.
bool moveToASilentNetwork(const TemporaryDirectory& folder) {
    if (unshare(CLONE_NEWNS | CLONE_NEWNET) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return false;
    }
    for (const auto& [file, content] :
         {std::pair("resolv.conf", "nameserver 127.0.0.1\noptions timeout:2 attempts:1\n"),
          std::pair("nsswitch.conf", "hosts: dns\n")}) { // which may name other sockets
        folder.write(file, content);
        mount((folder.path() / file).c_str(), (std::string("/etc/") + file).c_str(), nullptr,
              MS_BIND, nullptr);
    }
    nameServer = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq loopback{{"lo"}, {}};
    loopback.ifr_flags = IFF_UP | IFF_RUNNING;
    const sockaddr_in place{AF_INET, htons(53), {htonl(INADDR_LOOPBACK)}, {}};
    return ioctl(nameServer, SIOCSIFFLAGS, &loopback) == 0 &&
           bind(nameServer, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0;
}

void loadAndUnload(const TemporaryDirectory& directory) {
    const auto threads = threadCount();
    const auto descriptors = descriptorCount();
    void* const host = dlopen(MORVELLACINTO_LOADED_HOST, RTLD_NOW | RTLD_LOCAL);
    require(threadCount() == threads && descriptorCount() == descriptors, "loading starts nothing");
    const auto use = reinterpret_cast<int (*)(const char*, const char*, void (*)())>(
        dlsym(host, "useThePlatform"));
    const int took = use("https://audience.test/", directory.path().c_str(), [] {
        char question[512];
        require(recv(nameServer, question, sizeof question, 0) > 0, "the name is looked up");
    });
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
    if (!moveToASilentNetwork(directory)) {
        std::puts("not attacked: no right to make a network");
        return 0;
    }
    for (int round = 0; round < std::atoi(arguments[1]); ++round) {
        loadAndUnload(directory);
    }
    std::printf("%d faults\n", faults);
    return faults == 0 ? 0 : 1;
}
