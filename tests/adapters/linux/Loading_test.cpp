#include "support/ProcessCounts.h"
#include "support/ShutdownLimit.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <chrono>
#include <dlfcn.h>
#include <fstream>
#include <iterator>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using morvellacinto::testing::descriptorCount;
using morvellacinto::testing::TemporaryDirectory;
using morvellacinto::testing::threadCount;

// A socket of a network, for this thread and those that it makes, in which nothing but this name
// server is to be found, that answers no question. -1 when the test may not make networks.
int silentNameServer(const TemporaryDirectory& folder) {
    if (unshare(CLONE_NEWNS | CLONE_NEWNET) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return -1;
    }
    for (const auto& [file, content] :
         {std::pair("resolv.conf", "nameserver 127.0.0.1\noptions timeout:2 attempts:1\n"),
          std::pair("nsswitch.conf", "hosts: dns\n")}) { // which may name other sockets
        folder.write(file, content);
        mount((folder.path() / file).c_str(), (std::string("/etc/") + file).c_str(), nullptr,
              MS_BIND, nullptr);
    }
    const int server = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq loopback{{"lo"}, {}};
    loopback.ifr_flags = IFF_UP | IFF_RUNNING;
    const sockaddr_in place{AF_INET, htons(53), {htonl(INADDR_LOOPBACK)}, {}};
    const timeval patience{30, 0};
    setsockopt(server, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    const bool works = ioctl(server, SIOCSIFFLAGS, &loopback) == 0 &&
                       bind(server, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0;
    return works ? server : -1;
}

bool isMapped(const std::string& library) {
    std::ifstream maps("/proc/self/maps");
    const std::string text{std::istreambuf_iterator<char>(maps), {}};
    return text.find(library) != std::string::npos;
}

TEST(Loading, StartsNothingAndUnloadsAfterAShutdownWhileANameLookupHangs) {
    const TemporaryDirectory directory;
    static int nameServer = silentNameServer(directory);
    if (nameServer < 0) {
        GTEST_SKIP() << "needs the right to make a network namespace";
    }
    std::thread([] {}).join(); // with the first one comes that of a sanitizer
    const auto threads = threadCount();
    const auto descriptors = descriptorCount();
    void* const host = dlopen(MORVELLACINTO_LOADED_HOST, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(host, nullptr) << dlerror();
    EXPECT_TRUE(isMapped("libmorvellacinto_linux"));
    EXPECT_EQ(threadCount(), threads);
    EXPECT_EQ(descriptorCount(), descriptors);
    const auto use = reinterpret_cast<int (*)(const char*, const char*, void (*)())>(
        dlsym(host, "useThePlatform"));
    const int took = use("https://audience.test/", directory.path().c_str(), [] {
        char question[512];
        EXPECT_GT(recv(nameServer, question, sizeof question, 0), 0);
    });
    EXPECT_GE(took, 0);
    EXPECT_LT(took, morvellacinto::testing::shutdownLimit / std::chrono::milliseconds(1));
    ASSERT_EQ(dlclose(host), 0);
    EXPECT_FALSE(isMapped("libmorvellacinto_linux"));
    EXPECT_EQ(threadCount(), threads + 1) << "the look-up has a thread of its own";
    for (int i = 0; i < 3000 && threadCount() > threads; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(threadCount(), threads);
    EXPECT_EQ(descriptorCount(), descriptors);
}

} // namespace
