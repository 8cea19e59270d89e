// SPDX-License-Identifier: MIT
// What loading the library costs a program, which this one therefore is not linked with.

#include "Comparison.h"

#include "support/ChildProcess.h"

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>

namespace {

using namespace morvellacinto;

// Told on standard output by a process of its own, where nothing of the library is loaded yet.
int load(const char* library) {
    void* loaded = nullptr;
    const double seconds =
        bench::secondsOf([&] { loaded = dlopen(library, RTLD_NOW | RTLD_LOCAL); });
    if (loaded == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    std::printf("%.9f\n", seconds);
    return 0;
}

} // namespace

int main(int count, char** arguments) {
    if (count == 3 && std::string_view(arguments[1]) == "load") {
        return load(arguments[2]);
    }
    const std::string program = std::filesystem::read_symlink("/proc/self/exe");
    const auto loading = [&program](const char* library) {
        return [&program, library] {
            return std::stod(testing::ChildProcess({program, "load", library}).readLine());
        };
    };
    bench::compare("dlopen", {{"ours", loading(MORVELLACINTO_LIBRARY)},
                              {"an empty library", loading(MORVELLACINTO_EMPTY)}});
    return bench::runComparisons(count, arguments);
}
