// SPDX-License-Identifier: MIT
// Uploads over TLS to a server on loopback, with all the certificates that the system trusts.

#include "BareUpload.h"
#include "Comparison.h"
#include "JsonTexts.h"
#include "Peers.h"

#include "morvellacinto/Morvellacinto.h"
#include "morvellacinto/platform/Clock.h"
#include "morvellacinto/platform/Dispatch.h"
#include "settings/ValueBlob.h"
#include "support/ChildProcess.h"
#include "support/FaultServer.h"
#include "support/TestCertificates.h"
#include <morvellacinto/native/NativePlatform.h>

#include <fstream>
#include <future>
#include <poll.h>

namespace morvellacinto::bench {
namespace {

using native::NativePlatform;
using testing::FaultServer;

constexpr const char* systemCertificates = "/etc/ssl/certs/ca-certificates.crt";
const Uuid token = *Uuid::parse("6E1F3C1A-8C5B-4C0E-9B57-5F3B1D0A7C42");

// Answers on /close/... and ends the connection, so that the next request needs a new one.
class Service {
public:
    explicit Service(testing::KeyKind kind = testing::KeyKind::p256)
        : trustFile_(folder_.file("trusted.pem")), authority_(kind) {
        std::ifstream system(systemCertificates);
        require(system.good(), "the system has no certificates to trust");
        std::ofstream(trustFile_) << system.rdbuf() << std::ifstream(authority_.file()).rdbuf();
    }

    [[nodiscard]] std::string url(const std::string& path) const { return server_.url(path); }
    [[nodiscard]] const std::string& trustFile() const { return trustFile_; }
    [[nodiscard]] std::string authority() const { return authority_.file(); }
    [[nodiscard]] std::string file(const char* name) const { return folder_.file(name); }

private:
    static void answer(FaultServer::Connection& connection, const FaultServer::Request& request) {
        static const std::string body = [] {
            Object whole = readJson(answerText(600))->asObject();
            whole.remove("serviceurl"); // the host would follow it
            return writeJson(whole);
        }();
        const bool closes = request.path().starts_with("/close/");
        connection.write(testing::answer(200, body, closes ? "Connection: close\r\n" : ""));
        if (closes) {
            connection.close();
        }
    }

    const Folder folder_;
    const std::string trustFile_;
    const testing::TestAuthority authority_;
    FaultServer server_{authority_.serverContext("IP:127.0.0.1"), {.onRequest = &answer}};
};

std::shared_ptr<NativePlatform>
installedPhone(const std::string& settings, const std::vector<std::filesystem::path>& authorities) {
    auto phone = NativePlatform::create({.bundleIdentifier = "com.example.bench",
                                         .dataDirectory = settings,
                                         .trustAnchors = authorities});
    platform::install(phone);
    return phone;
}

void uploadByLibrary(const std::string& url, const Value& payload) {
    std::promise<bool> ended;
    KRNetworkManager::request(
        KRRequest::requestWithType(KRRequestTypePost, url, payload, token),
        [&](const std::optional<Value>& answer) { ended.set_value(answer.has_value()); },
        [&](const KRError&) { ended.set_value(false); });
    require(ended.get_future().get(), "an upload failed");
}

// What a new process takes for its first upload, told on standard output. Its arguments are whose
// upload it is, the URL, the trust file, the authority's own file and a folder for settings.
int firstUpload(char** arguments) {
    const std::string who = arguments[1];
    const UploadTarget target{arguments[2], arguments[3], payloadText()};
    const Value payload = *readJson(target.body);
    const double seconds = secondsOf([&] {
        if (who == "ours") {
            static const auto phone = installedPhone(arguments[5], {arguments[4]});
            uploadByLibrary(target.url, payload);
        } else if (who == "multi") {
            curl_global_init(CURL_GLOBAL_DEFAULT);
            require(!BareMulti(target).upload().empty(), "no answer");
        } else {
            curl_global_init(CURL_GLOBAL_DEFAULT);
            require(!uploadByNewEasyHandle(target).empty(), "no answer");
        }
    });
    std::printf("%.9f\n", seconds);
    std::fflush(stdout);
    std::_Exit(0);
}

void compareFirst(const Service& service, const std::string& program) {
    const auto inNewProcess = [&](const char* who) {
        return [&service, program, who] {
            testing::ChildProcess child({program, who, service.url("/close/first"),
                                         service.trustFile(), service.authority(),
                                         service.file("first")});
            return std::stod(child.readLine());
        };
    };
    compare("first upload of a process",
            {{"ours", inNewProcess("ours")},
             {"bare libcurl with its defaults", inNewProcess("easy"), 0.25},
             {"bare libcurl, one multi handle", inNewProcess("multi")}});
}

void compareLater(const Service& service, const std::string& row, const std::string& path,
                  std::optional<double> ofMulti) {
    const UploadTarget target{service.url(path), service.trustFile(), payloadText()};
    const auto payload = std::make_shared<Value>(*readJson(target.body));
    const auto multi = std::make_shared<BareMulti>(target);
    const auto ours = [=] { uploadByLibrary(target.url, *payload); };
    compare(row, {repeated("ours", ours),
                  repeated(
                      "bare libcurl, one multi handle", [=] { return multi->upload(); }, ofMulti)});
}

// Apart from the others, which its reading of all certificates would throw out of every cache.
void compareEasy(const Service& service) {
    const UploadTarget target{service.url("/close/later"), service.trustFile(), payloadText()};
    const auto payload = std::make_shared<Value>(*readJson(target.body));
    compare("later upload, new connection",
            {repeated("ours", [=] { uploadByLibrary(target.url, *payload); }),
             repeated(
                 "bare libcurl, an easy handle each", [=] { return uploadByNewEasyHandle(target); },
                 0.1)});
}

// Ours from the call to the completion, with the answer and the time of the upload kept; theirs
// with the same bytes kept in as many commits.
void compareStored(const Service& service, NativePlatform& phone, const std::string& row,
                   const std::string& path) {
    const auto folder = std::make_shared<Folder>();
    const auto database = std::make_shared<BareSqlite>(folder->file("bare"));
    const UploadTarget target{service.url(path + "/audience/"), service.trustFile(), payloadText()};
    const auto multi = std::make_shared<BareMulti>(target);
    const auto payload = std::make_shared<Object>(readJson(target.body)->asObject());
    const auto manager = std::make_shared<KRAudienceManager>(token);
    const auto setUp = [base = service.url(path)] {
        require(KRSettingsManager::setLocalSetting(base, "KRServiceURL"), "not stored");
    };
    const auto ours = [=, &phone] {
        bool ended = false;
        const auto completion = [&ended](const auto& answer, const auto&) {
            require(answer.has_value(), "an upload failed");
            ended = true;
        };
        manager->collect(*payload, completion, true);
        while (!ended) {
            pollfd ready{phone.descriptor(), POLLIN, 0};
            require(poll(&ready, 1, 10'000) == 1, "no answer");
            phone.drain();
        }
    };
    const auto bare = [=, &phone, times = 0]() mutable {
        std::string answer = multi->upload();
        // What is stored already SQLite would not write again; ours has a stamp beside it.
        answer += std::to_string(++times);
        database->store("KRAudienceUpdate", native::encodeValue(phone.clock().now()));
        database->store("KRAudiences", answer);
    };
    compare(row, {prepared(setUp, repeated("ours", ours)),
                  repeated("bare libcurl and bare SQLite", bare, 1.1)});
}

} // namespace
} // namespace morvellacinto::bench

int main(int count, char** arguments) {
    using namespace morvellacinto::bench;
    if (count == 6) {
        return firstUpload(arguments);
    }
    const Service service;
    const Service rsaService(morvellacinto::testing::KeyKind::rsa2048);
    compareFirst(service, std::filesystem::read_symlink("/proc/self/exe"));
    const auto phone =
        installedPhone(service.file("settings"), {service.authority(), rsaService.authority()});
    compareLater(service, "later upload, new connection", "/close/later", 0.8);
    compareLater(rsaService, "later upload, new connection, RSA", "/close/later", 0.8);
    compareEasy(service);
    compareLater(service, "later upload, kept connection", "/later", std::nullopt);
    compareStored(service, *phone, "upload and stores, new connection", "/close");
    compareStored(service, *phone, "upload and stores, kept connection", "");
    const int result = runComparisons(count, arguments);
    morvellacinto::platform::shutdown();
    return result;
}
