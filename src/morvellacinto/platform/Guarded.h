// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/DeveloperLog.h"
#include "morvellacinto/platform/Diagnostics.h"

#include <exception>
#include <string_view>
#include <utility>

#if defined(__GLIBCXX__)
#include <cxxabi.h>
#endif

namespace morvellacinto::platform {

/// Runs `body`; whatever exception escapes from it is swallowed and `failureText` logged instead,
/// and the exception's own text told to the diagnostics; neither without a log. True when nothing
/// escaped.
template <class Body>
bool guarded(DeveloperLog* log, std::string_view failureText, Body&& body) {
    const auto fail = [&](const char* reason) {
        if (log != nullptr) {
            log->log(failureText);
            tell<LineLogged>(failureText, reason);
        }
        return false;
    };
    try {
        std::forward<Body>(body)();
        return true;
    }
#if defined(__GLIBCXX__)
    catch (abi::__forced_unwind&) { // a cancelled thread must unwind to its end
        throw;
    }
#endif
    catch (const std::exception& failure) {
        return fail(failure.what());
    } catch (...) {
        return fail("something that is no std::exception was thrown");
    }
}

} // namespace morvellacinto::platform
