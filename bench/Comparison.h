// SPDX-License-Identifier: MIT
#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace morvellacinto::bench {

/// One way of doing what a row measures.
struct Contender {
    std::string name;
    /// Does it, once or several times, and tells how many seconds one time took.
    std::function<double()> seconds;
    /// How many times as long as this one ours is meant to take at most.
    std::optional<double> aim = std::nullopt;
};

double secondsOf(const std::function<void()>& work);

/// Does `work` so often in a row that the time can be told. Its result is kept from being optimised
/// away.
template <class Work>
Contender repeated(std::string name, Work work, std::optional<double> aim = std::nullopt) {
    const auto measure = [work, times = 0L]() mutable {
        const auto run = [&work](long count) {
            return secondsOf([&] {
                for (long index = 0; index < count; ++index) {
                    if constexpr (std::is_void_v<decltype(work())>) {
                        work();
                    } else {
                        auto result = work();
                        benchmark::DoNotOptimize(result);
                    }
                }
            });
        };
        constexpr double longEnough = 1e-3;
        if (times == 0) {
            run(3); // what the first ones take tells nothing of the others
            for (times = 1; run(times) < longEnough; times *= 2) {
            }
        }
        return run(times) / static_cast<double>(times);
    };
    return {std::move(name), measure, aim};
}

/// The same after `prepare`, whose time does not count.
Contender prepared(std::function<void()> prepare, Contender contender);

/// Registers a row: what `contenders` take, the first of which is ours. They are measured in turn,
/// in another order each time, so that whatever else the machine does hits all of them alike.
void compare(const std::string& row, std::vector<Contender> contenders);

/// Registers a row that is one figure by itself; `aim` is the most that it is meant to be.
void tell(const std::string& row, const std::string& unit, std::function<double()> figure,
          std::optional<double> aim = std::nullopt);

/// Runs what was registered, as the command line of Google Benchmark says, and then prints a table
/// of the medians and their ratios. The result is main's.
int runComparisons(int count, char** arguments);

} // namespace morvellacinto::bench
