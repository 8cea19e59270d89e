// SPDX-License-Identifier: MIT
#include "Comparison.h"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <random>

namespace morvellacinto::bench {
namespace {

constexpr double secondsARow = 4;
constexpr std::size_t fewestRounds = 7;
constexpr std::size_t mostRounds = 1001;

struct Line {
    std::string row;
    std::string beside;
    std::string ours;
    std::string theirs;
    std::string ratio;
    std::string aim;
};

std::vector<Line>& table() {
    static std::vector<Line> lines{{"row", "beside", "ours", "theirs", "ours / theirs", "aim"}};
    return lines;
}

double median(std::vector<double> samples) {
    const auto middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
    std::nth_element(samples.begin(), middle, samples.end());
    return *middle;
}

std::string text(const char* format, double number) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, format, number);
    return buffer;
}

std::string timeText(double seconds) {
    return seconds < 1e-6   ? text("%.1f ns", seconds * 1e9)
           : seconds < 1e-3 ? text("%.1f us", seconds * 1e6)
                            : text("%.2f ms", seconds * 1e3);
}

std::string aimText(double reached, std::optional<double> aim) {
    return aim ? text("%.4g", *aim) + (reached <= *aim ? " met" : " MISSED") : "";
}

void measure(benchmark::State& state, const std::string& row,
             const std::vector<Contender>& contenders) {
    const std::size_t count = contenders.size();
    std::vector<std::vector<double>> times(count);
    std::vector<std::vector<double>> ratios(count);
    double ours = 0;
    for ([[maybe_unused]] auto unused : state) {
        for (const Contender& contender : contenders) {
            contender.seconds(); // warms up
        }
        double passed = 0;
        std::mt19937 random(1);
        std::vector<std::size_t> order(count);
        std::iota(order.begin(), order.end(), 0U);
        for (std::size_t round = 0;
             round < fewestRounds || (round < mostRounds && passed < secondsARow); ++round) {
            passed += secondsOf([&] {
                std::shuffle(order.begin(), order.end(), random);
                for (const std::size_t next : order) {
                    times[next].push_back(contenders[next].seconds());
                }
            });
            for (std::size_t other = 0; other < count; ++other) {
                ratios[other].push_back(times[0].back() / times[other].back());
            }
        }
        ours = median(times[0]);
        state.SetIterationTime(ours);
    }
    for (std::size_t other = 1; other < count; ++other) {
        const Contender& contender = contenders[other];
        const double ratio = median(ratios[other]);
        state.counters["of " + contender.name] = ratio;
        table().push_back({row, contender.name, timeText(ours), timeText(median(times[other])),
                           text("%.2f", ratio), aimText(ratio, contender.aim)});
    }
}

void printTable() {
    constexpr std::string Line::*columns[] = {&Line::row,    &Line::beside, &Line::ours,
                                              &Line::theirs, &Line::ratio,  &Line::aim};
    std::putchar('\n');
    for (std::size_t index = 0; index < table().size(); ++index) {
        for (const auto column : columns) {
            std::size_t width = 0;
            for (const Line& line : table()) {
                width = std::max(width, (line.*column).size());
            }
            std::printf("| %-*s ", static_cast<int>(width), (table()[index].*column).c_str());
        }
        std::puts(index == 0 ? "|\n|---|---|---|---|---|---|" : "|");
    }
}

} // namespace

double secondsOf(const std::function<void()>& work) {
    const auto begun = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
}

Contender prepared(std::function<void()> prepare, Contender contender) {
    contender.seconds = [prepare = std::move(prepare), seconds = std::move(contender.seconds)] {
        prepare();
        return seconds();
    };
    return contender;
}

void compare(const std::string& row, std::vector<Contender> contenders) {
    benchmark::RegisterBenchmark(row.c_str(), [row, contenders = std::move(contenders)](
                                                  auto& state) { measure(state, row, contenders); })
        ->UseManualTime()
        ->Iterations(1);
}

void tell(const std::string& row, const std::string& unit, std::function<double()> figure,
          std::optional<double> aim) {
    benchmark::RegisterBenchmark(row.c_str(),
                                 [=](benchmark::State& state) {
                                     double reached = 0;
                                     for ([[maybe_unused]] auto unused : state) {
                                         reached = figure();
                                         state.SetIterationTime(0);
                                     }
                                     state.counters[unit] = reached;
                                     table().push_back({row, "", text("%.6g ", reached) + unit, "",
                                                        "", aimText(reached, aim)});
                                 })
        ->UseManualTime()
        ->Iterations(1);
}

int runComparisons(int count, char** arguments) {
    benchmark::Initialize(&count, arguments);
    if (benchmark::ReportUnrecognizedArguments(count, arguments)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    printTable();
    return 0;
}

} // namespace morvellacinto::bench
