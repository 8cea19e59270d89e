#include "support/FaultServer.h"
#include "support/ProcessCounts.h"
#include "support/ShutdownLimit.h"
#include "support/SilentNameServer.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <chrono>
#include <dlfcn.h>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>

namespace {

using morvellacinto::testing::descriptorCount;
using morvellacinto::testing::FaultServer;
using morvellacinto::testing::SilentNameServer;
using morvellacinto::testing::TemporaryDirectory;
using morvellacinto::testing::threadCount;

bool isMapped(const std::string& library) {
    std::ifstream maps("/proc/self/maps");
    const std::string text{std::istreambuf_iterator<char>(maps), {}};
    return text.find(library) != std::string::npos;
}

template <class Signature>
Signature* function(void* host, const char* name) {
    const auto address = reinterpret_cast<Signature*>(dlsym(host, name));
    EXPECT_NE(address, nullptr) << name;
    return address;
}

TEST(Loading, StartsNoThreadAndOpensNoDescriptorAndUnloadsAfterShutdown) {
    const auto descriptorsBefore = descriptorCount();
    auto server = std::make_unique<FaultServer>(nullptr, FaultServer::Script{});
    const TemporaryDirectory directory;
    // A test program that has the library loaded anyway installs a platform once.
    const int rounds = isMapped("libmorvellacinto.so") ? 1 : 3;
    for (int round = 0; round < rounds; ++round) {
        const auto threads = threadCount();
        const auto descriptors = descriptorCount();
        void* const host = dlopen(MORVELLACINTO_LOADED_HOST, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(host, nullptr) << dlerror();
        EXPECT_TRUE(isMapped("libmorvellacinto_linux"));
        EXPECT_LE(threadCount(), threads); // the server may have ended one
        EXPECT_LE(descriptorCount(), descriptors);
        const auto use = function<int(const char*, const char*)>(host, "useThePlatform");
        EXPECT_EQ(use(server->url("/").c_str(), directory.path().c_str()), 0);
        ASSERT_EQ(dlclose(host), 0);
        EXPECT_FALSE(isMapped("libmorvellacinto_linux"));
    }
    server.reset();
    EXPECT_LE(descriptorCount(), descriptorsBefore);
}

TEST(Loading, UnloadsWhileANameLookupHangs) {
    static std::unique_ptr<SilentNameServer> nameServer;
    nameServer = SilentNameServer::start();
    if (!nameServer) {
        GTEST_SKIP() << "needs the right to make a network namespace";
    }
    const TemporaryDirectory directory;
    std::thread([] {}).join(); // with the first one comes that of a sanitizer
    const auto threads = threadCount();
    void* const host = dlopen(MORVELLACINTO_LOADED_HOST, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(host, nullptr) << dlerror();
    const auto use = function<int(const char*, const char*, void (*)())>(host, "shutDownAtOnce");
    const int took = use("https://audience.test/", directory.path().c_str(),
                         [] { EXPECT_TRUE(nameServer->isAsked()); });
    EXPECT_LT(took, morvellacinto::testing::shutdownLimit / std::chrono::milliseconds(1));
    ASSERT_EQ(dlclose(host), 0);
    EXPECT_FALSE(isMapped("libmorvellacinto_linux"));
    EXPECT_EQ(threadCount(), threads + 1) << "the look-up has a thread of its own";
    for (int i = 0; i < 300 && threadCount() > threads; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    EXPECT_EQ(threadCount(), threads);
}

} // namespace
