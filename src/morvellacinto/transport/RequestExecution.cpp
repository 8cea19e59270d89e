// SPDX-License-Identifier: MIT
#include "morvellacinto/transport/AnsweredRequest.h"

#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/platform/Diagnostics.h"
#include "morvellacinto/platform/Platform.h"
#include "morvellacinto/transport/KRNetworkDelegate.h"
#include "morvellacinto/transport/KRRequest.h"

namespace morvellacinto::KRNetworkManager {
namespace {

constexpr std::chrono::seconds resourceTimeout{10};
constexpr const char* tokenHeader = "API_TOKEN";
constexpr const char* fallbackBody = R"({"bundle": "se.kovra.no-bundle"})";

platform::HttpSessionConfiguration sessionConfiguration() {
    platform::HttpSessionConfiguration configuration;
    configuration.additionalHeaders = {{"Accept-Encoding", "gzip"}};
    configuration.resourceTimeout = resourceTimeout;
    configuration.shouldUsePipelining = true;
    return configuration;
}

std::optional<platform::HttpRequest> transferFor(const KRRequest& request) {
    platform::HttpRequest transfer;
    transfer.url = request.url();
    transfer.refusedUrl = request.refusedUrl();
    switch (request.type()) {
    case KRRequestTypeGet:
        return transfer;
    case KRRequestTypePost:
        transfer.method = "POST";
        if (request.apiToken()) {
            transfer.headers.push_back({tokenHeader, request.apiToken()->text()});
        }
        transfer.body = request.payload().value_or(fallbackBody);
        return transfer;
    }
    return std::nullopt;
}

} // namespace

void request(const KRRequest& request, SuccessCallback success, ErrorCallback error) {
    AnswerCallback answered;
    if (success) {
        answered = [success = std::move(success)](std::optional<Value> answer, const AnswerFacts&) {
            success(std::move(answer));
        };
    }
    requestAnswer(request, std::move(answered), std::move(error));
}

void requestAnswer(const KRRequest& request, AnswerCallback success, ErrorCallback error) {
    const auto session =
        platform::current()->makeHttpSession(sessionConfiguration(), &KRNetworkDelegate::shared());
    auto ended = [success = std::move(success),
                  error = std::move(error)](const std::optional<std::string>& data,
                                            const std::optional<platform::HttpResponse>& response,
                                            const std::optional<KRError>& failure) {
        if (failure) {
            platform::tell<platform::RequestFailed>(failure->domain, failure->code);
        } else {
            platform::tell<platform::AnswerCome>(response ? response->status : 0,
                                                 data ? data->size() : std::size_t{0},
                                                 response ? response->timings : std::nullopt);
        }
        if (failure && error) {
            error(*failure);
            return;
        }
        if (failure) {
            platform::tell<platform::ErrorUnheard>("a request without an error callback", *failure);
        }
        if (success) {
            success(data && !failure ? readJson(*data) : std::nullopt,
                    {response ? response->status : 0, data ? data->size() : 0});
        }
    };
    if (std::optional<platform::HttpRequest> transfer = transferFor(request)) {
        session->dataTask(*std::move(transfer), std::move(ended))->resume();
    } else {
        platform::tell<platform::RequestNotMade>(request.type());
    }
    session->finishTasksAndInvalidate();
}

} // namespace morvellacinto::KRNetworkManager
