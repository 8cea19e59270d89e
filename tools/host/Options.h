// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Uuid.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace morvellacinto::host {

enum class Command {
    tags,
    collect,
    cached,
    query,
    payload,
    preview,
    url,
    consent,
    erase,
    settingsList,
    settingsGet,
    settingsSet,
    settingsSetDate,
    settingsRemove,
    round,
    request,
};

/// The command line, checked. Members that belong to one command are only meaningful with it.
struct Options {
    std::optional<Uuid> token;
    std::optional<std::int32_t> decimals;
    std::optional<std::string> trackId;
    bool askTracking = false;
    std::optional<std::string> bundle;
    std::optional<std::string> serviceUrl;
    std::vector<std::filesystem::path> caFiles;
    std::filesystem::path dataDirectory;
    std::string device = "native";
    std::chrono::duration<double> wait = std::chrono::seconds(15);
    int times = 1;
    bool isVerbose = false;
    std::optional<std::filesystem::path> traceFile;
    bool sendAsked = false;

    Command command = Command::tags;
    bool force = false;
    bool isReset = false;            // of `url`
    std::string member;              // of `cached`
    std::string consent;             // of `consent`; empty to show it
    std::optional<std::string> file; // of commands that read one; "-" is standard input
    std::string key;                 // of `settings`
    std::string json;                // of `settings set`
    double seconds = 0;              // of `settings set-date`
    float value = 0;                 // of `round`
    std::uint32_t count = 0;
    std::string method; // of `request`
    std::string url;
};

/// Reads the command line. Gives nothing when it asked for help or the version, which then stands
/// on standard output. Throws UsageError.
[[nodiscard]] std::optional<Options> readOptions(int count, char** arguments);

} // namespace morvellacinto::host
