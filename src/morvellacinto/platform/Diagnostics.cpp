#include "morvellacinto/platform/Diagnostics.h"

#include "morvellacinto/platform/Platform.h"

#include <stdexcept>

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
    std::string operator()(const ClassUnknown& unknown) const {
        return "no class is known by the name \"" + unknown.name + "\"; AVClass::of<" +
               unknown.name + ">() makes it known";
    }
};

} // namespace

Diagnostics::~Diagnostics() = default;

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
