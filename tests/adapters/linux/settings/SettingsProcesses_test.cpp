#include "AttackScript.h"
#include "SettingsFixture.h"

#include "support/Attack.h"
#include "support/ChildProcess.h"

#include <gmock/gmock.h>

#include <array>
#include <chrono>
#include <csignal>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

namespace morvellacinto::native {
namespace {

using testing::ChildProcess;

class SettingsProcesses : public SettingsFixture {
protected:
    // Runs settings_process.cpp.
    [[nodiscard]] std::unique_ptr<ChildProcess> start(std::vector<std::string> command) const {
        command.insert(command.begin(),
                       {MORVELLACINTO_SETTINGS_PROCESS, directory().string(), bundle});
        return std::make_unique<ChildProcess>(command);
    }
};

TEST_F(SettingsProcesses, SeeEachOthersFlushes) {
    const auto defaults = open();
    const auto other = start({"echo"});
    for (int round = 0; round < 100; ++round) {
        ASSERT_EQ(defaults->objectForKey("echo"),
                  round == 0 ? std::nullopt : std::optional<Value>(round - 1));
        defaults->setObjectForKey(round, "call");
        ASSERT_TRUE(defaults->synchronize());
        ASSERT_EQ(other->readLine(), "flushed");
        ASSERT_EQ(defaults->objectForKey("echo"), Value(round)) << "at the next read";
    }
}

TEST_F(SettingsProcesses, ThatBeginTogetherLoseNoUpdateAndSetADamagedDatabaseAsideOnce) {
    for (const std::size_t damaged : {0U, 1U, 1U, 1U}) {
        std::filesystem::remove_all(directory());
        std::filesystem::create_directories(directory());
        if (damaged > 0) {
            std::ofstream(database()) << "this is no database, and has never been one";
        }
        std::vector<std::unique_ptr<ChildProcess>> adding;
        for (int process = 0; process < 4; ++process) {
            adding.push_back(start({"add", "key" + std::to_string(process), "50"}));
        }
        for (const auto& process : adding) {
            EXPECT_EQ(process->finish().status, 0);
        }
        const auto defaults = open();
        for (int process = 0; process < 4; ++process) {
            EXPECT_EQ(defaults->objectForKey("key" + std::to_string(process)), Value(50));
        }
        EXPECT_EQ(setAside().size(), damaged);
    }
}

TEST_F(SettingsProcesses, AreNotHeldUpForGoodByOneThatIsStopped) {
    const auto defaults = open();
    defaults->setObjectForKey("mine", "key");
    ASSERT_TRUE(defaults->synchronize());
    const auto stopped = start({"attack", "0", "0"});
    ASSERT_EQ(stopped->readLine(), "0");
    stopped->send(SIGSTOP);
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(defaults->objectForKey("key"), Value("mine"));
    defaults->setObjectForKey("again", "key");
    const bool flushed = defaults->synchronize();
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(20));
    EXPECT_EQ(defaults->objectForKey("key"), Value("again"));
    stopped->send(SIGKILL);
    static_cast<void>(stopped->finish());
    EXPECT_TRUE(flushed || defaults->synchronize());
    EXPECT_EQ(open()->objectForKey("key"), Value("again"));
}

TEST_F(SettingsProcesses, KilledAtAnyInstantLoseNoFlushedValueAndTearNone) {
    const int rounds = testing::attackRounds(30);
    constexpr int writers = 3;
    std::mt19937 random(11);
    std::array<std::int64_t, writers> done{}; // operations that have certainly happened
    const auto watching = open();
    for (int round = 0; round < rounds; ++round) {
        std::vector<std::unique_ptr<ChildProcess>> attacked;
        for (int writer = 0; writer < writers; ++writer) {
            attacked.push_back(start({"attack", std::to_string(writer),
                                      std::to_string(done[static_cast<std::size_t>(writer)])}));
        }
        for (const auto& process : attacked) {
            ASSERT_FALSE(process->readLine().empty());
        }
        // Into the midst of the operations that follow, not just behind the end of one.
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 20'000));
        for (const auto& process : attacked) {
            process->send(SIGKILL);
        }
        const auto newcomer = open();
        for (int writer = 0; writer < writers; ++writer) {
            std::int64_t& operations = done[static_cast<std::size_t>(writer)];
            ++operations; // the line read above
            std::istringstream output(attacked[static_cast<std::size_t>(writer)]->finish().output);
            for (std::string line; std::getline(output, line);) {
                operations = std::stoll(line) + 1;
            }
            // One more may have been committed but not acknowledged.
            const std::int64_t next = operations % attackKeys;
            const bool unacknowledged = newcomer->objectForKey(attackKey(writer, next)) !=
                                        attackState(writer, operations, next);
            operations += unacknowledged ? 1 : 0;
            for (std::int64_t key = 0; key < attackKeys; ++key) {
                const auto expected = attackState(writer, operations, key);
                const std::string name = attackKey(writer, key);
                ASSERT_EQ(newcomer->objectForKey(name), expected) << name << " round " << round;
            }
        }
    }
    EXPECT_THAT(told(), ::testing::IsEmpty());
    EXPECT_THAT(setAside(), ::testing::IsEmpty());
    // Who has watched all along comes to see the same, be it killed before it could tell.
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    for (int writer = 0; writer < writers; ++writer) {
        for (std::int64_t key = 0; key < attackKeys; ++key) {
            const auto expected = open()->objectForKey(attackKey(writer, key));
            while (watching->objectForKey(attackKey(writer, key)) != expected &&
                   std::chrono::steady_clock::now() < limit) {
            }
            EXPECT_EQ(watching->objectForKey(attackKey(writer, key)), expected);
        }
    }
}

} // namespace
} // namespace morvellacinto::native
