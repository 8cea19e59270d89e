// SPDX-License-Identifier: MIT
#pragma once

#if defined(__cplusplus) && __cplusplus < 202002L
#error "Morvellacinto's headers need C++20: compile with -std=c++20 or newer"
#endif

/// Marks what the shared libraries export; everything else is built with hidden visibility.
#if defined(__GNUC__)
#define MORVELLACINTO_EXPORT __attribute__((visibility("default")))
#define MORVELLACINTO_INTERNAL __attribute__((visibility("hidden")))
#else
#define MORVELLACINTO_EXPORT
#define MORVELLACINTO_INTERNAL ///< Marks a class within an exported one as hidden.
#endif
