// SPDX-License-Identifier: MIT
#include "contract/Contracts.h"

#include "morvellacinto/scripted/ScriptedPhone.h"

namespace morvellacinto::contract {
namespace {

using namespace std::chrono_literals;

struct ScriptedSubject final : Subject {
    ScriptedSubject() { phone_->script()->trackingAuthorization = 0; }

    [[nodiscard]] platform::Platform& platform() override { return *phone_; }

    [[nodiscard]] bool pumpUntil(const std::function<bool()>& done) override {
        for (int round = 0; round < 20; ++round) {
            phone_->settle();
            if (done()) {
                return true;
            }
            phone_->clock().advance(100ms);
        }
        return false;
    }

    [[nodiscard]] std::string serve(int status, const std::string& body) override {
        phone_->http().plan({status, body});
        return "https://service.example/";
    }
    [[nodiscard]] std::vector<std::string> received() override {
        std::vector<std::string> received;
        for (const scripted::RecordedRequest& record : phone_->http().requests()) {
            if (record.isSent) {
                std::string& text = received.emplace_back(record.request.method + " /\r\n");
                for (const auto& [name, value] : record.sentHeaders()) {
                    text += name + ": " + value + "\r\n";
                }
                text += "\r\n" + record.request.body.value_or("");
            }
        }
        return received;
    }

    const std::shared_ptr<scripted::ScriptedPhone> phone_ = scripted::ScriptedPhone::create();
};

} // namespace

std::unique_ptr<Subject> makeSubject() { return std::make_unique<ScriptedSubject>(); }

} // namespace morvellacinto::contract
