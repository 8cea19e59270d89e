#include "support/Attack.h"
#include "support/FaultServer.h"
#include "support/ProcessCounts.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

namespace {

using morvellacinto::testing::descriptorCount;
using morvellacinto::testing::FaultServer;
using morvellacinto::testing::threadCount;

bool isMapped(const std::string& library) {
    std::ifstream maps("/proc/self/maps");
    const std::string text{std::istreambuf_iterator<char>(maps), {}};
    return text.find(library) != std::string::npos;
}

TEST(Loading, StartsNoThreadAndOpensNoDescriptorAndUnloadsAfterShutdown) {
    FaultServer server(nullptr, {});
    std::string directory = (std::filesystem::temp_directory_path() / "loading-XXXXXX").string();
    ASSERT_NE(mkdtemp(directory.data()), nullptr);
    for (int round = 0; round < morvellacinto::testing::attackRounds(100); ++round) {
        const auto threads = threadCount();
        const auto descriptors = descriptorCount();
        void* const host = dlopen(MORVELLACINTO_LOADED_HOST, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(host, nullptr) << dlerror();
        EXPECT_TRUE(isMapped("libmorvellacinto_linux"));
        EXPECT_LE(threadCount(), threads); // the server may have ended one
        EXPECT_LE(descriptorCount(), descriptors);
        const auto use =
            reinterpret_cast<int (*)(const char*, const char*)>(dlsym(host, "useThePlatform"));
        ASSERT_NE(use, nullptr);
        EXPECT_EQ(use(server.url("/").c_str(), directory.c_str()), 0);
        ASSERT_EQ(dlclose(host), 0);
        EXPECT_FALSE(isMapped("libmorvellacinto_linux"));
    }
    std::filesystem::remove_all(directory);
}

} // namespace
