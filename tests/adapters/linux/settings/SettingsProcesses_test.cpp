#include "AttackScript.h"
#include "SettingsFixture.h"

#include "support/Attack.h"

#include <gmock/gmock.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <random>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace morvellacinto::native {
namespace {

// The program of settings_process.cpp with pipes to its input and from its output.
class Process {
public:
    explicit Process(std::vector<std::string> arguments) {
        int in[2];
        int out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe2");
        }
        arguments.insert(arguments.begin(), MORVELLACINTO_SETTINGS_PROCESS);
        std::vector<char*> words;
        for (std::string& argument : arguments) {
            words.push_back(argument.data());
        }
        words.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        const int error = posix_spawn(&pid_, words[0], &actions, nullptr, words.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        close(in[0]);
        close(out[1]);
        input_ = in[1];
        output_ = out[0];
        if (error != 0) {
            throw std::system_error(error, std::generic_category(), words[0]);
        }
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process() {
        if (pid_ > 0) {
            kill();
        }
        if (input_ >= 0) {
            close(input_);
        }
        close(output_);
    }

    [[nodiscard]] std::string ask(const std::string& line) {
        const std::string bytes = line + '\n';
        EXPECT_EQ(::write(input_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        return readLine();
    }

    // Empty at the end of output, or when nothing comes for a minute.
    [[nodiscard]] std::string readLine() {
        while (true) {
            if (const std::size_t end = buffer_.find('\n'); end != std::string::npos) {
                std::string line = buffer_.substr(0, end);
                buffer_.erase(0, end + 1);
                return line;
            }
            pollfd waiting{output_, POLLIN, 0};
            std::array<char, 512> chunk;
            const ssize_t got =
                poll(&waiting, 1, 60'000) == 1 ? ::read(output_, chunk.data(), chunk.size()) : 0;
            if (got <= 0) {
                return {};
            }
            buffer_.append(chunk.data(), static_cast<std::size_t>(got));
        }
    }

    void signal(int number) const { ::kill(pid_, number); }
    void kill() {
        signal(SIGKILL);
        static_cast<void>(wait());
    }
    [[nodiscard]] int wait() {
        int status = -1;
        waitpid(std::exchange(pid_, -1), &status, 0);
        return status;
    }

private:
    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
    std::string buffer_;
};

class SettingsProcesses : public SettingsFixture {
protected:
    [[nodiscard]] std::unique_ptr<Process> start(std::vector<std::string> command) const {
        command.insert(command.begin(), {directory().string(), bundle});
        return std::make_unique<Process>(std::move(command));
    }
};

TEST_F(SettingsProcesses, SeeEachOthersFlushesAtTheNextRead) {
    const auto defaults = open();
    const auto other = start({"serve"});
    for (int round = 0; round < 100; ++round) {
        const std::string text = "text" + std::to_string(round);
        ASSERT_EQ(defaults->objectForKey("theirs"),
                  round == 0 ? std::nullopt
                             : std::optional<Value>("text" + std::to_string(round - 1)));
        ASSERT_EQ(other->ask("set theirs " + text), "flushed");
        ASSERT_EQ(defaults->objectForKey("theirs"), Value(text));
        defaults->setObjectForKey(text, "mine");
        ASSERT_TRUE(defaults->synchronize());
        ASSERT_EQ(other->ask("get mine"), text);
        defaults->removeObjectForKey("mine");
        ASSERT_TRUE(defaults->synchronize());
        ASSERT_EQ(other->ask("get mine"), "-");
    }
}

TEST_F(SettingsProcesses, ThatWriteDifferentKeysAtOnceLoseNoUpdate) {
    constexpr int processes = 4;
    std::vector<std::unique_ptr<Process>> adding;
    for (int process = 0; process < processes; ++process) {
        adding.push_back(start({"add", "key" + std::to_string(process), "100"}));
    }
    for (const auto& process : adding) {
        EXPECT_EQ(process->wait(), 0);
    }
    const auto defaults = open();
    for (int process = 0; process < processes; ++process) {
        EXPECT_EQ(defaults->objectForKey("key" + std::to_string(process)), Value(100));
    }
}

TEST_F(SettingsProcesses, ThatMeetADamagedDatabaseTogetherSetItAsideOnce) {
    for (int round = 0; round < 3; ++round) {
        std::filesystem::remove_all(directory());
        std::filesystem::create_directories(directory());
        std::FILE* file = std::fopen(database().c_str(), "wb");
        ASSERT_NE(file, nullptr);
        std::fputs("this is no database, and has never been one", file);
        std::fclose(file);
        std::vector<std::unique_ptr<Process>> adding;
        for (int process = 0; process < 4; ++process) {
            adding.push_back(start({"add", "key" + std::to_string(process), "5"}));
        }
        for (const auto& process : adding) {
            EXPECT_EQ(process->wait(), 0);
        }
        const auto defaults = open();
        for (int process = 0; process < 4; ++process) {
            EXPECT_EQ(defaults->objectForKey("key" + std::to_string(process)), Value(5));
        }
        EXPECT_EQ(setAside().size(), 1U);
    }
}

TEST_F(SettingsProcesses, AreNotHeldUpForGoodByOneThatIsStopped) {
    const auto defaults = open();
    defaults->setObjectForKey("mine", "key");
    ASSERT_TRUE(defaults->synchronize());
    auto stopped = start({"attack", "0", "0"});
    ASSERT_EQ(stopped->readLine(), "0");
    stopped->signal(SIGSTOP);
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(defaults->objectForKey("key"), Value("mine"));
    defaults->setObjectForKey("again", "key");
    const bool flushed = defaults->synchronize();
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(20));
    EXPECT_EQ(defaults->objectForKey("key"), Value("again"));
    stopped->kill();
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
        std::vector<std::unique_ptr<Process>> attacked;
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
            process->kill();
        }
        const auto newcomer = open();
        for (int writer = 0; writer < writers; ++writer) {
            std::int64_t& operations = done[static_cast<std::size_t>(writer)];
            ++operations; // the line read above
            for (std::string line;
                 !(line = attacked[static_cast<std::size_t>(writer)]->readLine()).empty();) {
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
