#include "morvellacinto/scripted/ScriptedHttp.h"

#include "ScriptedHttpService.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace morvellacinto::scripted {

namespace {

bool isSameName(std::string_view left, std::string_view right) {
    const auto lower = [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    };
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [&](char a, char b) { return lower(a) == lower(b); });
}

auto find(const std::vector<platform::HttpHeader>& headers, std::string_view name) {
    return std::find_if(headers.begin(), headers.end(), [&](const platform::HttpHeader& header) {
        return isSameName(header.name, name);
    });
}

} // namespace

std::vector<platform::HttpHeader> RecordedRequest::sentHeaders() const {
    std::vector<platform::HttpHeader> sent = request.headers;
    for (const platform::HttpHeader& header : configuration.additionalHeaders) {
        if (find(request.headers, header.name) == request.headers.end()) {
            sent.push_back(header);
        }
    }
    return sent;
}

std::optional<std::string> RecordedRequest::sentHeader(std::string_view name) const {
    const std::vector<platform::HttpHeader> sent = sentHeaders();
    const auto found = find(sent, name);
    return found == sent.end() ? std::nullopt : std::optional(found->value);
}

ScriptedHttp::ScriptedHttp(std::shared_ptr<ScriptedDispatch> dispatch,
                           std::shared_ptr<ScriptedClock> clock)
    : service_(std::make_shared<ScriptedHttpService>(std::move(dispatch), std::move(clock))) {}

ScriptedHttp::~ScriptedHttp() { cancelAll(); }

void ScriptedHttp::plan(HttpAnswer answer) { service_->plan(std::move(answer)); }

void ScriptedHttp::answer(HttpAnswer answer) { service_->answer(std::move(answer)); }

void ScriptedHttp::setChallenges(std::vector<platform::HttpChallenge> challenges) {
    service_->setChallenges(std::move(challenges));
}

std::vector<RecordedRequest> ScriptedHttp::requests() const { return service_->requests(); }

std::size_t ScriptedHttp::waitingCount() const { return service_->waitingCount(); }

std::size_t ScriptedHttp::plannedCount() const { return service_->plannedCount(); }

std::size_t ScriptedHttp::sessionCount() const { return service_->sessionCount(); }

std::shared_ptr<platform::HttpSession>
ScriptedHttp::makeSession(platform::HttpSessionConfiguration configuration,
                          platform::HttpSessionDelegate* delegate) {
    return service_->makeSession(std::move(configuration), delegate);
}

void ScriptedHttp::cancelAll() { service_->cancelAll(); }

} // namespace morvellacinto::scripted
