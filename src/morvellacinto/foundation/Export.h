#pragma once

/// Marks what the shared libraries export; everything else is built with hidden visibility.
#if defined(__GNUC__)
#define MORVELLACINTO_EXPORT __attribute__((visibility("default")))
#else
#define MORVELLACINTO_EXPORT
#endif
