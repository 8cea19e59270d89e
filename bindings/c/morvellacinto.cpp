// SPDX-License-Identifier: MIT
#include <morvellacinto/c/morvellacinto.h>

#include <morvellacinto/Morvellacinto.h>
#include <morvellacinto/Version.h>
#include <morvellacinto/context/BasePayload.h>
#include <morvellacinto/foundation/Json.h>
#include <morvellacinto/native/NativePlatform.h>
#include <morvellacinto/settings/KRSettingsManager.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>

using namespace morvellacinto;

struct mvl_manager {
    KRAudienceManager manager;
};

namespace {

thread_local std::array<char, 512> lastError{}; // nothing that ends before the thread does

[[noreturn]] void wrong(const std::string& what) { throw std::invalid_argument(what); }

mvl_status fail(mvl_status status, const char* what) noexcept {
    std::snprintf(lastError.data(), lastError.size(), "%s", what);
    return status;
}

// No exception crosses the border.
template <class Body>
mvl_status guarded(const Body& body) noexcept {
    try {
        return body();
    } catch (const std::logic_error& error) {
        return fail(MVL_WRONG, error.what());
    } catch (const std::exception& error) {
        return fail(MVL_FAILED, error.what());
    } catch (...) {
        return fail(MVL_FAILED, "something that is no std::exception was thrown");
    }
}

mvl_status durable(bool isDurable) {
    return isDurable ? MVL_OK : fail(MVL_FAILED, "it was not written to disk");
}

template <class T>
T& checked(T* pointer, const char* name) {
    if (pointer == nullptr) {
        wrong(std::string(name) + " is null");
    }
    return *pointer;
}

const char* text(const char* given, const char* name) { return &checked(given, name); }

mvl_status give(const std::string& made, char** to) {
    char*& slot = checked(to, "the place for the text");
    slot = static_cast<char*>(std::malloc(made.size() + 1)); // NOLINT(*-no-malloc): see mvl_free
    if (slot == nullptr) {
        throw std::bad_alloc();
    }
    std::memcpy(slot, made.c_str(), made.size() + 1);
    return MVL_OK;
}

Value read(const std::string& json, const char* name) {
    JsonProblem problem;
    std::optional<Value> value = readJson(json, &problem);
    if (!value) {
        wrong(std::string(name) + " is no JSON: line " + std::to_string(problem.line) +
              ", column " + std::to_string(problem.column) + ": " + problem.reason);
    }
    return *std::move(value);
}

Object readObject(const char* json, const char* name) {
    const Value value = read(text(json, name), name);
    if (!value.isObject()) {
        wrong(std::string(name) + " is no JSON object");
    }
    return value.asObject();
}

Object payloadOr(const char* payload) {
    return payload == nullptr ? KRNetworkManager::basePayload() : readObject(payload, "payload");
}

std::optional<Uuid> readToken(const char* token) {
    const auto parsed = token == nullptr ? std::nullopt : Uuid::parse(token);
    if (token != nullptr && !parsed) {
        wrong("token is no UUID: \"" + std::string(token) + '"');
    }
    return parsed;
}

native::UploadConsent readConsent(std::string_view consent) {
    if (consent != "allowed" && consent != "withheld") {
        wrong("consent is neither \"allowed\" nor \"withheld\": \"" + std::string(consent) + '"');
    }
    return consent == "allowed" ? native::UploadConsent::allowed : native::UploadConsent::withheld;
}

std::string errorText(const KRError& error) {
    return writeJson(
        Object{{"domain", error.domain}, {"code", error.code}, {"userInfo", error.userInfo}});
}

// A callback of the host's, released with the last copy.
template <class Callback>
std::shared_ptr<const Callback> held(const Callback& given) {
    const auto release = [](const Callback* callback) {
        const std::unique_ptr<const Callback> freed(callback);
        if (callback->release != nullptr) {
            callback->release(callback->user);
        }
    };
    try {
        return {new Callback(given), release};
    } catch (const std::bad_alloc&) {
        if (given.release != nullptr) {
            given.release(given.user);
        }
        throw;
    }
}

KRAudienceManager::Completion completionOf(const mvl_completion& given) {
    const auto callback = held(given);
    if (callback->call == nullptr) {
        return nullptr;
    }
    return [callback](const std::optional<Object>& answer, const std::optional<KRError>& error) {
        callback->call(callback->user, answer ? writeJson(*answer).c_str() : nullptr,
                       error ? errorText(*error).c_str() : nullptr);
    };
}

native::NativeOptions readOptions(const char* json) {
    native::NativeOptions options;
    for (const Object::Member& option : json == nullptr ? Object() : readObject(json, "options")) {
        const std::string_view name = option.key();
        const auto string = [&] {
            if (!option.value.isString()) {
                wrong("option \"" + std::string(name) + "\" is no text");
            }
            return std::string(option.value.asString());
        };
        if (name == "bundleIdentifier") {
            options.bundleIdentifier = string();
        } else if (name == "dataDirectory") {
            options.dataDirectory = string();
        } else if (name == "proxy") {
            options.proxy = string();
        } else if (name == "defaultServiceUrl") {
            options.defaultServiceUrl = string();
        } else if (name == "uploadConsent") {
            options.uploadConsent = readConsent(string());
        } else if (name == "locationTimeout") {
            const double seconds = option.value.isNumber() ? option.value.asDouble() : -1;
            if (!(seconds >= 0 && seconds <= 86400)) { // also what is not a number
                wrong("option \"locationTimeout\" is not from 0 to 86400 seconds");
            }
            options.locationTimeout = std::chrono::duration_cast<std::chrono::milliseconds>(
                std::chrono::duration<double>(seconds));
        } else if (name == "trustAnchors" && option.value.ifArray() != nullptr) {
            for (const Value& path : *option.value.ifArray()) {
                if (!path.isString()) {
                    wrong("option \"trustAnchors\" holds what is no text");
                }
                options.trustAnchors.emplace_back(path.asString());
            }
        } else {
            wrong("option \"" + std::string(name) +
                  "\" is none of bundleIdentifier, dataDirectory, trustAnchors (an array), "
                  "locationTimeout, proxy, defaultServiceUrl, uploadConsent");
        }
    }
    return options;
}

// Kept until the process ends, as the library keeps that a platform was installed.
std::shared_ptr<native::NativePlatform>& slot() {
    static auto* const platform = new std::shared_ptr<native::NativePlatform>;
    return *platform;
}

std::mutex slotMutex;

std::shared_ptr<native::NativePlatform> platformHere() {
    const std::lock_guard lock(slotMutex);
    if (slot() == nullptr) {
        throw std::logic_error("there is no platform; call mvl_start first");
    }
    return slot();
}

} // namespace

const char* mvl_error() { return lastError.data(); }

const char* mvl_version() { return versionText(); }

void mvl_free(char* given) { std::free(given); } // NOLINT(*-no-malloc): C hosts know no other

mvl_status mvl_start(const char* options, mvl_text_callback log, mvl_text_callback diagnostics) {
    return guarded([&] {
        const auto lines = held(log);
        const auto records = held(diagnostics);
        native::NativeOptions chosen = readOptions(options);
        if (lines->call != nullptr) {
            chosen.developerLog = [lines](std::string_view line) {
                lines->call(lines->user, std::string(line).c_str());
            };
        }
        if (records->call != nullptr) {
            chosen.observer = [records](const platform::Diagnostic& record) {
                records->call(records->user, writeJson(objectOf(record)).c_str());
            };
            chosen.diagnostics = [](std::string_view) {}; // the same as sentences
        }
        const auto platform = native::NativePlatform::create(std::move(chosen));
        platform::install(platform);
        const std::lock_guard lock(slotMutex);
        slot() = platform;
        return MVL_OK;
    });
}

mvl_status mvl_descriptor(int* descriptor) {
    return guarded([&] {
        checked(descriptor, "descriptor") = platformHere()->descriptor();
        return MVL_OK;
    });
}

mvl_status mvl_drain() {
    return guarded([] { return platformHere()->drain(), MVL_OK; });
}

mvl_status mvl_run() {
    return guarded([] { return platformHere()->run(), MVL_OK; });
}

mvl_status mvl_stop() {
    return guarded([] { return platformHere()->stop(), MVL_OK; });
}

mvl_status mvl_shutdown() {
    return guarded([] { return platform::shutdown(), MVL_OK; });
}

mvl_status mvl_set_tracking_authorization(uint64_t status) {
    return guarded([&] { return durable(platformHere()->setTrackingAuthorization(status)); });
}

mvl_status mvl_set_upload_consent(const char* consent) {
    return guarded([&] {
        return durable(platformHere()->setUploadConsent(readConsent(text(consent, "consent"))));
    });
}

mvl_status mvl_erase_stored_data() {
    return guarded([] { return durable(platformHere()->eraseStoredData()); });
}

mvl_status mvl_manager_create(const char* token, mvl_manager** manager) {
    return guarded([&] {
        mvl_manager*& slot = checked(manager, "manager");
        slot = new mvl_manager{KRAudienceManager(readToken(token))};
        return MVL_OK;
    });
}

void mvl_manager_destroy(mvl_manager* manager) { delete manager; }

mvl_status mvl_manager_set_token(mvl_manager* manager, const char* token) {
    return guarded([&] {
        checked(manager, "manager").manager.setApiToken(readToken(token));
        return MVL_OK;
    });
}

mvl_status mvl_manager_set_decimals(mvl_manager* manager, float decimals) {
    return guarded([&] {
        checked(manager, "manager").manager.setGeoFixDecimals(decimals);
        return MVL_OK;
    });
}

mvl_status mvl_manager_set_track_id(mvl_manager* manager, const char* track_id) {
    return guarded([&] {
        checked(manager, "manager").manager.setTrackId(track_id);
        return MVL_OK;
    });
}

mvl_status mvl_manager_set_ask_tracking(mvl_manager* manager, int ask) {
    return guarded([&] {
        checked(manager, "manager").manager.setRequestTrackingAuthorization(ask != 0);
        return MVL_OK;
    });
}

mvl_status mvl_geo_tags(mvl_manager* manager, mvl_completion completion) {
    return guarded([&] {
        auto held = completionOf(completion);
        checked(manager, "manager").manager.kovraTagsWithCompletion(std::move(held));
        return MVL_OK;
    });
}

mvl_status mvl_collect(mvl_manager* manager, const char* payload, int force,
                       mvl_completion completion) {
    return guarded([&] {
        auto held = completionOf(completion);
        checked(manager, "manager")
            .manager.collect(payloadOr(payload), std::move(held), force != 0);
        return MVL_OK;
    });
}

mvl_status mvl_preview(mvl_manager* manager, const char* payload, char** bytes) {
    return guarded([&] {
        return give(checked(manager, "manager").manager.previewUpload(payloadOr(payload)), bytes);
    });
}

mvl_status mvl_cached(const char* member, char** json) {
    return guarded([&] {
        const std::string_view name = text(member, "member");
        if (name != "tags" && name != "mapping") {
            wrong("member is neither \"tags\" nor \"mapping\": \"" + std::string(name) + '"');
        }
        const auto value = KRAudienceManager(std::nullopt)
                               .cachedTags(name == "tags" ? KRTagsTypeTags : KRTagsTypeMapping);
        return value ? give(writeJsonFragment(*value), json) : MVL_NOTHING;
    });
}

mvl_status mvl_query_string(const char* tags, char** query) {
    return guarded(
        [&] { return give(KRAudienceManager::toQueryString(readObject(tags, "tags")), query); });
}

mvl_status mvl_setting(const char* key, char** json) {
    return guarded([&] {
        const auto value = KRSettingsManager::localSettingForKey(text(key, "key"));
        try {
            return value ? give(writeJsonFragment(*value), json) : MVL_NOTHING;
        } catch (const JsonWriteError& error) {
            return fail(MVL_FAILED, error.what());
        }
    });
}

mvl_status mvl_set_setting(const char* key, const char* json) {
    return guarded([&] {
        const Value value = read(std::string("[").append(text(json, "json")) + ']', "json");
        const Array& one = value.asArray();
        if (one.size() != 1 || one.begin()->isNull()) {
            wrong("json is not one value other than null");
        }
        return durable(KRSettingsManager::setLocalSetting(*one.begin(), text(key, "key")));
    });
}

mvl_status mvl_remove_setting(const char* key) {
    return guarded(
        [&] { return durable(KRSettingsManager::removeLocalSettingForKey(text(key, "key"))); });
}
