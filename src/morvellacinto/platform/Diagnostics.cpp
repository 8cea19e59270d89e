#include "morvellacinto/platform/Diagnostics.h"

#include "morvellacinto/platform/Platform.h"

namespace morvellacinto::platform {

namespace {

struct Sentence {
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
    std::string operator()(const ClassUnknown& unknown) const {
        return "no class is known by the name \"" + unknown.name + "\"; AVClass::of<" +
               unknown.name + ">() makes it known";
    }
};

} // namespace

std::atomic<bool> hasDiagnostics = false;

std::string sentenceOf(const Diagnostic& diagnostic) { return std::visit(Sentence(), diagnostic); }

void tellDiagnostics(const Diagnostic& diagnostic) noexcept {
    try {
        const auto platform = current();
        if (Diagnostics* diagnostics = platform->diagnostics()) {
            diagnostics->tell(diagnostic);
        }
    } catch (const std::exception&) {
        return; // no platform, and so nobody to tell
    }
}

} // namespace morvellacinto::platform
