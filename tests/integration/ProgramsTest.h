#pragma once

#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fstream>
#include <list>
#include <string>
#include <vector>

namespace morvellacinto::testing {

using nlohmann::json;
using Words = std::vector<std::string>;

/// Runs the host against services of its own, with one folder of settings for the whole test.
class ProgramsTest : public ::testing::Test {
protected:
    struct Service {
        std::unique_ptr<ChildProcess> process;
        std::string url;
        std::string caFile;
        std::string uploadsFile;

        [[nodiscard]] std::vector<json> uploads() const {
            std::vector<json> records;
            std::ifstream file(uploadsFile);
            for (std::string line; std::getline(file, line);) {
                records.push_back(json::parse(line));
            }
            return records;
        }
    };

    std::string file(const std::string& name, const std::string& content) const {
        const std::string path = folder.path() / name;
        std::ofstream(path) << content;
        return path;
    }

    Service startService(const json& scenario = json::array()) {
        Service service;
        const std::string name = "service" + std::to_string(++serviceCount_);
        service.uploadsFile = folder.path() / (name + ".uploads");
        service.process = std::make_unique<ChildProcess>(
            Words{MORVELLACINTO_SERVICE, "--ca-out", folder.path() / (name + ".pem"), "--uploads",
                  service.uploadsFile, "--scenario", file(name + ".json", scenario.dump())});
        const json ready = json::parse(service.process->readLine());
        service.url = ready.at("url");
        service.caFile = ready.at("ca");
        return service;
    }

    Words hostCommand(const Words& words) const {
        Words command{MORVELLACINTO_HOST, "--data-dir", folder.path() / "data"};
        command.insert(command.end(), words.begin(), words.end());
        return command;
    }

    Finished host(const Words& words, const std::string& input = {}) const {
        return ChildProcess(hostCommand(words), input).finish();
    }

    /// The same as a client of `service` that runs on a scripted phone.
    Words phoneWords(const Service& service, const Words& words) const {
        Words all{"--device", phone, "--ca-file", service.caFile, "--service-url", service.url};
        all.insert(all.end(), words.begin(), words.end());
        return all;
    }
    Finished phoneHost(const Service& service, const Words& words) const {
        return host(phoneWords(service, words));
    }

    const TemporaryDirectory folder;
    const std::string phone = file("phone.json", R"({"location": {"delaySeconds": 0}})");

private:
    int serviceCount_ = 0;
};

} // namespace morvellacinto::testing
