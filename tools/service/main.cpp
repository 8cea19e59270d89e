// SPDX-License-Identifier: MIT
#include "AudienceService.h"
#include "CertificateAuthority.h"
#include "Inspector.h"

#include "common/CommandLine.h"
#include "common/Input.h"
#include "morvellacinto/Version.h"
#include "morvellacinto/foundation/Json.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <thread>

namespace {

using namespace morvellacinto;
using namespace morvellacinto::service;
using tools::UsageError;

struct Options {
    int port = 0;
    std::optional<int> page;
    std::string certificate;
    std::string key;
    std::string caOut;
    std::string answer;
    std::string scenario;
    std::string uploads;
};

std::optional<Options> readOptions(int count, char** arguments) {
    Options options;
    CLI::App app("The audience service on loopback, for developers and tests",
                 "morvellacinto-service");
    app.set_version_flag("--version", std::string("morvellacinto-service ") + versionText());
    app.add_option("--port", options.port, "port of 127.0.0.1; any that is free without it")
        ->check(CLI::Range(0, 65535));
    app.add_option("--page", options.page, "port of a page that shows each upload; any for 0")
        ->check(CLI::Range(0, 65535));
    CLI::Option* certificate = app.add_option("--cert", options.certificate,
                                              "PEM file of the certificate, chain included");
    CLI::Option* key = app.add_option("--key", options.key, "PEM file of its private key");
    certificate->needs(key);
    key->needs(certificate);
    app.add_option("--ca-out", options.caOut,
                   "where the certificate of the throw-away authority is written")
        ->excludes(certificate);
    app.add_option("--answer", options.answer, "JSON file of the object to answer with")
        ->type_name("FILE");
    app.add_option("--scenario", options.scenario, "JSON file of an array of steps, one a request")
        ->type_name("FILE");
    app.add_option("--uploads", options.uploads, "file that gets a JSON line for each upload")
        ->type_name("FILE");
    app.footer("Exit status:\n"
               "  0  ended by SIGTERM or SIGINT\n"
               "  1  the port cannot be bound, or output not written\n"
               "  2  wrong usage, an unreadable file, or bad JSON in a file");
    return tools::parse(app, count, arguments) ? std::optional(options) : std::nullopt;
}

// The authority's certificate where the user wants it, or in a temporary file, which goes when the
// program ends.
class AuthorityFile {
public:
    AuthorityFile(const std::string& path, const std::string& pem) : path_(path) {
        if (path_.empty()) {
            std::string name =
                (std::filesystem::temp_directory_path() / "morvellacinto-ca-XXXXXX").string();
            const int descriptor = mkstemp(name.data());
            if (descriptor >= 0) {
                close(descriptor);
                path_ = name;
                isTemporary_ = true;
            }
        }
        std::ofstream file(path_);
        file << pem << std::flush;
        if (!file) {
            throw UsageError("the file \"" + path_.string() + "\" cannot be written");
        }
    }
    AuthorityFile(const AuthorityFile&) = delete;
    AuthorityFile& operator=(const AuthorityFile&) = delete;
    ~AuthorityFile() {
        if (isTemporary_) {
            std::error_code ignored;
            std::filesystem::remove(path_, ignored);
        }
    }

    [[nodiscard]] std::string path() const { return std::filesystem::absolute(path_).string(); }

private:
    std::filesystem::path path_;
    bool isTemporary_ = false;
};

std::ofstream openRecords(const std::string& path) {
    std::ofstream file;
    if (!path.empty()) {
        file.open(path, std::ios::app | std::ios::binary);
        if (!file) {
            throw UsageError("the file \"" + path + "\" cannot be written");
        }
    }
    return file;
}

std::unique_ptr<Scenario> readScenario(const std::string& path) {
    try {
        return std::make_unique<Scenario>(path.empty() ? Array() : tools::readArray(path));
    } catch (const std::invalid_argument& error) {
        throw UsageError("the file \"" + path + "\": " + error.what());
    }
}

// `authorityPem` gets the certificate of an authority made here.
std::unique_ptr<httplib::SSLServer> makeServer(const Options& options, std::string& authorityPem) {
    if (!options.certificate.empty()) {
        auto server =
            std::make_unique<httplib::SSLServer>(options.certificate.c_str(), options.key.c_str());
        if (!server->is_valid()) {
            throw UsageError("the files \"" + options.certificate + "\" and \"" + options.key +
                             "\" do not hold a certificate and its key");
        }
        return server;
    }
    const CertificateAuthority authority;
    authorityPem = authority.pem();
    const Identity identity = authority.issue("IP:127.0.0.1,IP:::1,DNS:localhost");
    return std::make_unique<httplib::SSLServer>(identity.certificate.get(), identity.key.get());
}

// Blocks the signals that end the program, for all threads to come.
sigset_t endingSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

void serve(const Options& options) {
    const sigset_t signals = endingSignals();
    std::string authorityPem;
    auto server = makeServer(options, authorityPem);
    auto scenario = readScenario(options.scenario);
    std::optional<Inspector> inspector;
    if (options.page) {
        inspector.emplace(*scenario);
    }
    AudienceService service(
        std::move(server),
        options.answer.empty() ? std::nullopt : std::optional(tools::readObject(options.answer)),
        std::move(scenario), openRecords(options.uploads), inspector ? &*inspector : nullptr);
    const int port = service.bind(options.port);
    const int pagePort = inspector ? bindToLoopback(inspector->server(), *options.page) : 0;
    // Once the ports are bound, so that the file of a service that has one stays.
    auto authorityFile = authorityPem.empty()
                             ? nullptr
                             : std::make_unique<AuthorityFile>(options.caOut, authorityPem);
    Object ready{{"url", "https://127.0.0.1:" + std::to_string(port) + "/v5"},
                 {"ca", authorityFile != nullptr
                            ? authorityFile->path()
                            : std::filesystem::absolute(options.certificate).string()}};
    if (inspector) {
        ready.set("page", "http://127.0.0.1:" + std::to_string(pagePort) + "/");
    }
    tools::print(writeJson(ready));
    std::thread([&service] { service.run(); }).detach();
    if (inspector) {
        std::thread([&inspector] { inspector->server().listen_after_bind(); }).detach();
    }

    int signal = 0;
    sigwait(&signals, &signal);
    authorityFile.reset();
    // The server's threads wait for idle connections and delayed answers; what they have recorded
    // is in its file already.
    std::_Exit(EXIT_SUCCESS);
}

} // namespace

int main(int count, char** arguments) {
    try {
        if (const auto options = readOptions(count, arguments)) {
            serve(*options);
        }
        return EXIT_SUCCESS;
    } catch (const UsageError& error) {
        std::cerr << error.what() << '\n';
        return tools::wrongUsageStatus;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
