#pragma once

#include "morvellacinto/platform/DeveloperLog.h"

#include <string_view>
#include <utility>

#if defined(__GLIBCXX__)
#include <cxxabi.h>
#endif

namespace morvellacinto::platform {

/// Runs `body`; whatever exception escapes from it is swallowed and `failureText` logged instead.
/// True when nothing escaped.
template <class Body>
bool guarded(DeveloperLog& log, std::string_view failureText, Body&& body) {
    try {
        std::forward<Body>(body)();
        return true;
    }
#if defined(__GLIBCXX__)
    catch (abi::__forced_unwind&) { // a cancelled thread must unwind to its end
        throw;
    }
#endif
    catch (...) {
        log.log(failureText);
        return false;
    }
}

} // namespace morvellacinto::platform
