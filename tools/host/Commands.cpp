// SPDX-License-Identifier: MIT
#include "Commands.h"

#include "ValueText.h"

#include "morvellacinto/Morvellacinto.h"
#include "morvellacinto/platform/Dispatch.h"

#include <poll.h>

#include <cmath>
#include <iostream>

namespace morvellacinto::host {
namespace {

// How a command that reports through a completion ended; filled in on the main thread.
struct Outcome {
    std::optional<Value> answer;
    std::optional<KRError> error;
    bool isComplete = false;

    // The first completion is the one that counts.
    void complete(std::optional<Value> newAnswer, std::optional<KRError> newError) {
        if (!isComplete) {
            *this = {std::move(newAnswer), std::move(newError), true};
        }
    }
};

void runMainQueue(native::NativePlatform& machine, std::chrono::duration<double> limit,
                  const bool& isOver) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(limit);
    while (!isOver) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd descriptor{machine.descriptor(), POLLIN, 0};
        if (left <= 0 || poll(&descriptor, 1, static_cast<int>(left)) == 0) {
            return;
        }
        machine.drain();
    }
}

ExitStatus report(const Outcome& outcome) {
    if (!outcome.isComplete) {
        std::cerr << "no completion came in time\n";
        return noCompletion;
    }
    if (outcome.error) {
        printError(*outcome.error);
        return failed;
    }
    print(outcome.answer ? valueText(*outcome.answer) : "null");
    return success;
}

// Completions may come after the command is over, so the outcome is theirs too.
ExitStatus awaitOutcome(const Options& options, native::NativePlatform& machine,
                        const std::function<void(const std::shared_ptr<Outcome>&)>& start) {
    const auto outcome = std::make_shared<Outcome>();
    start(outcome);
    runMainQueue(machine, options.wait, outcome->isComplete);
    return report(*outcome);
}

KRAudienceManager::Completion completing(const std::shared_ptr<Outcome>& outcome) {
    return [outcome](const std::optional<Object>& answer, const std::optional<KRError>& error) {
        outcome->complete(answer ? std::optional<Value>(*answer) : std::nullopt, error);
    };
}

ExitStatus fetchTags(const Options& options, native::NativePlatform& machine,
                     KRAudienceManager& manager) {
    return awaitOutcome(options, machine, [&](const std::shared_ptr<Outcome>& outcome) {
        manager.kovraTagsWithCompletion(completing(outcome));
    });
}

Object payloadOf(const Options& options) {
    return options.file ? readObject(*options.file) : KRNetworkManager::basePayload();
}

ExitStatus collect(const Options& options, native::NativePlatform& machine,
                   KRAudienceManager& manager) {
    Object payload = payloadOf(options);
    return awaitOutcome(options, machine, [&](const std::shared_ptr<Outcome>& outcome) {
        manager.collect(payload, completing(outcome), options.force);
    });
}

ExitStatus request(const Options& options, native::NativePlatform& machine) {
    std::optional<Value> payload;
    if (options.file) {
        payload = readValue(readFile(*options.file), "the payload");
        if (!payload->isArray() && !payload->isObject()) {
            throw UsageError("the payload is " + std::string(nameOf(payload->kind())) +
                             " where an object or an array was expected");
        }
    }
    const auto type = options.method == "get" ? KRRequestTypeGet : KRRequestTypePost;
    return awaitOutcome(options, machine, [&](const std::shared_ptr<Outcome>& outcome) {
        const auto complete = [outcome](const std::optional<Value>& answer,
                                        const std::optional<KRError>& error) {
            platform::current()->dispatch().asyncMain(
                [outcome, answer, error] { outcome->complete(answer, error); });
        };
        KRNetworkManager::request(
            KRRequest::requestWithType(type, options.url, payload, options.token),
            [complete](const std::optional<Value>& answer) { complete(answer, std::nullopt); },
            [complete](const KRError& error) { complete(std::nullopt, error); });
    });
}

ExitStatus cached(const Options& options, const KRAudienceManager& manager) {
    const auto found =
        manager.cachedTags(options.member == "tags" ? KRTagsTypeTags : KRTagsTypeMapping);
    if (!found) {
        return missing("there is no cached \"" + options.member + "\"");
    }
    print(valueText(*found));
    return success;
}

ExitStatus query(const Options& options, const KRAudienceManager& manager) {
    Object tags;
    if (options.file) {
        tags = readObject(*options.file);
    } else {
        const auto found = manager.cachedTags(KRTagsTypeTags);
        if (!found || !found->isObject()) {
            return missing("there is no cached \"tags\" that is an object");
        }
        tags = found->asObject();
    }
    try {
        print(KRAudienceManager::toQueryString(tags));
    } catch (const std::invalid_argument& error) {
        throw UsageError(error.what());
    }
    return success;
}

ExitStatus printBaseUrl(const Options& options) {
    const bool isDone =
        !options.isReset || KRSettingsManager::removeLocalSettingForKey("KRServiceURL");
    const Value url = KRNetworkManager::baseURL();
    print(url.isString() ? std::string(url.asString()) : valueText(url));
    return isDone ? success : failed;
}

void printRounded(const Options& options) {
    const float rounded = roundToN(options.value, options.count);
    print(std::isnan(rounded)      ? "nan"
          : std::isfinite(rounded) ? valueText(rounded)
                                   : std::to_string(rounded));
}

} // namespace

void printError(const KRError& error) {
    const Value* message = error.userInfo.find(KRError::messageKey);
    std::cerr << valueText(Object{{"domain", error.domain},
                                  {"code", error.code},
                                  {"message", message != nullptr ? *message : Value("")}})
              << std::endl;
}

ExitStatus missing(const std::string& sentence) {
    std::cerr << sentence << '\n';
    return nothingFound;
}

ExitStatus runCommand(const Options& options, native::NativePlatform& machine) {
    KRAudienceManager manager(options.token);
    if (options.decimals) {
        manager.setGeoFixDecimals(static_cast<float>(*options.decimals));
    }
    manager.setTrackId(options.trackId);
    manager.setRequestTrackingAuthorization(options.askTracking);

    switch (options.command) {
    case Command::tags:
        return fetchTags(options, machine, manager);
    case Command::collect:
        return collect(options, machine, manager);
    case Command::cached:
        return cached(options, manager);
    case Command::query:
        return query(options, manager);
    case Command::payload:
        print(valueText(KRNetworkManager::basePayload()));
        return success;
    case Command::preview:
        print(manager.previewUpload(payloadOf(options)));
        return success;
    case Command::url:
        return printBaseUrl(options);
    case Command::round:
        printRounded(options);
        return success;
    case Command::request:
        return request(options, machine);
    case Command::consent:
    case Command::erase:
    case Command::settingsList:
    case Command::settingsGet:
    case Command::settingsSet:
    case Command::settingsSetDate:
    case Command::settingsRemove:
        return runSettingsCommand(options, machine);
    }
    return wrongUsage;
}

} // namespace morvellacinto::host
