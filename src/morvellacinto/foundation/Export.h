#pragma once

/// Marks what the shared libraries export; everything else is built with hidden visibility, and a
/// class within an exported one is marked as internal.
#if defined(__GNUC__)
#define MORVELLACINTO_EXPORT __attribute__((visibility("default")))
#define MORVELLACINTO_INTERNAL __attribute__((visibility("hidden")))
#else
#define MORVELLACINTO_EXPORT
#define MORVELLACINTO_INTERNAL
#endif
