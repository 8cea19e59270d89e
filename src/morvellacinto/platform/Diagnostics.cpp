// SPDX-License-Identifier: MIT
#include "morvellacinto/platform/Diagnostics.h"

#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/platform/Platform.h"

namespace morvellacinto::platform {

namespace {

double seconds(std::chrono::microseconds time) {
    return std::chrono::duration<double>(time).count();
}

struct Facts {
    Object operator()(const ValueSkipped& r) const {
        return {{"event", "valueSkipped"},
                {"class", r.className},
                {"property", r.property},
                {"wanted", r.wanted},
                {"found", r.found}};
    }
    Object operator()(const ImportEnded& r) const {
        return {
            {"event", "importEnded"}, {"class", r.className}, {"key", r.key}, {"found", r.found}};
    }
    Object operator()(const ClassUnknown& r) const {
        return {{"event", "classUnknown"}, {"name", r.name}};
    }
    Object operator()(const AnswerDropped& r) const {
        return {
            {"event", "answerDropped"}, {"status", r.status}, {"size", r.size}, {"found", r.found}};
    }
    Object operator()(const AnswerNotKept& r) const {
        return {{"event", "answerNotKept"}, {"status", r.status}, {"size", r.size}};
    }
    Object operator()(const CallSuperseded& r) const {
        return {{"event", "callSuperseded"}, {"key", r.key}};
    }
    Object operator()(const ErrorUnheard& r) const {
        return {{"event", "errorUnheard"},
                {"of", r.of},
                {"domain", r.error.domain},
                {"code", r.error.code}};
    }
    Object operator()(const BaseUrlRefused& r) const {
        return {{"event", "baseUrlRefused"}, {"found", r.found}};
    }
    Object operator()(const RequestNotMade& r) const {
        return {{"event", "requestNotMade"}, {"type", r.type}};
    }
    Object operator()(const LineLogged& r) const {
        return {{"event", "lineLogged"}, {"line", r.line}, {"reason", r.reason}};
    }
    Object operator()(const PlatformNote& r) const {
        return {{"event", "platformNote"}, {"sentence", r.sentence}};
    }
    Object operator()(const UploadBegun& r) const {
        Object fields;
        for (const UploadBegun::Field& field : r.fields) {
            fields.set(field.name, field.size);
        }
        return {{"event", "uploadBegun"}, {"fields", std::move(fields)}, {"forced", r.isForced}};
    }
    Object operator()(const LocationAsked&) const { return {{"event", "locationAsked"}}; }
    Object operator()(const LocationCome& r) const {
        return {{"event", "locationCome"}, {"decimals", r.decimals}};
    }
    Object operator()(const AnswerCome& r) const {
        Object come{{"event", "answerCome"}, {"status", r.status}, {"size", r.size}};
        if (r.timings) {
            come.set("name", seconds(r.timings->name));
            come.set("connection", seconds(r.timings->connection));
            come.set("tls", seconds(r.timings->tls));
            come.set("firstByte", seconds(r.timings->firstByte));
            come.set("lastByte", seconds(r.timings->lastByte));
            come.set("reused", r.timings->isReused);
        }
        return come;
    }
    Object operator()(const RequestFailed& r) const {
        return {{"event", "requestFailed"}, {"domain", r.domain}, {"code", r.code}};
    }
    Object operator()(const AnswerCached& r) const {
        return {{"event", "answerCached"}, {"durable", r.isDurable}};
    }
    Object operator()(const CacheServed& r) const {
        return {{"event", "cacheServed"}, {"age", r.ageSeconds}};
    }
    Object operator()(const BaseUrlMoved& r) const {
        return {{"event", "baseUrlMoved"}, {"to", r.to}};
    }
    Object operator()(const PermissionAsked&) const { return {{"event", "permissionAsked"}}; }
    Object operator()(const PermissionAnswered& r) const {
        return {{"event", "permissionAnswered"}, {"status", r.status}};
    }
};

struct Sentence {
    template <class Record>
    std::string operator()(const Record& record) const {
        static_assert(isRoutine<Record>);
        return writeJson(Facts()(record));
    }
    std::string operator()(const ValueSkipped& skipped) const {
        return "property \"" + skipped.property + "\" of " + skipped.className + " takes " +
               skipped.wanted + ", not " + skipped.found + "; it stays as it was";
    }
    std::string operator()(const ImportEnded& ended) const {
        return "the import of a " + ended.className + " ended at \"" + ended.key +
               "\": " + ended.found;
    }
    std::string operator()(const AnswerDropped& dropped) const {
        return (dropped.status == 0 ? "the cached answer"
                                    : "the answer with status " + std::to_string(dropped.status) +
                                          " and " + std::to_string(dropped.size) + " bytes") +
               " is " + dropped.found + ", not an object; its completion is not called";
    }
    std::string operator()(const AnswerNotKept& answer) const {
        return "the answer with status " + std::to_string(answer.status) + " and " +
               std::to_string(answer.size) +
               " bytes is not kept: stored data was erased while it was on its way";
    }
    std::string operator()(const CallSuperseded& superseded) const {
        return "the callback that waited for a location under \"" + superseded.key +
               "\" is superseded by a later one and not called";
    }
    std::string operator()(const ErrorUnheard& unheard) const {
        const Value* message = unheard.error.userInfo.find(KRError::messageKey);
        return "nobody hears of the error of " + unheard.of + ": " + unheard.error.domain + " " +
               std::to_string(unheard.error.code) +
               (message != nullptr && message->isString() ? ": " + std::string(message->asString())
                                                          : "");
    }
    std::string operator()(const BaseUrlRefused& refused) const {
        return "the base URL is no URL but " + refused.found;
    }
    std::string operator()(const RequestNotMade& request) const {
        return "a request of type " + std::to_string(request.type) +
               " makes no transfer; neither of its callbacks is called";
    }
    std::string operator()(const LineLogged& logged) const {
        return logged.line + ": " + logged.reason;
    }
    std::string operator()(const PlatformNote& note) const { return note.sentence; }
    std::string operator()(const ClassUnknown& unknown) const {
        return "no class is known by the name \"" + unknown.name + "\"; AVClass::of<" +
               unknown.name + ">() makes it known";
    }
};

} // namespace

std::atomic<Told> told = Told::nothing;

std::string sentenceOf(const Diagnostic& diagnostic) { return std::visit(Sentence(), diagnostic); }

Object objectOf(const Diagnostic& diagnostic) { return std::visit(Facts(), diagnostic); }

void tellDiagnostics(const Diagnostic& diagnostic) noexcept {
    try {
        const auto platform = current();
        if (Diagnostics* diagnostics = platform->diagnostics()) {
            diagnostics->tell(diagnostic);
        }
    } catch (...) {
        return; // no platform, and so nobody to tell
    }
}

} // namespace morvellacinto::platform
