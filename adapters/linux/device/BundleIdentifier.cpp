#include "BundleIdentifier.h"

#include "basics/Environment.h"
#include "basics/KeyFile.h"
#include "basics/VisibleText.h"

#include <utility>

namespace morvellacinto::native {

BundleIdentifier::BundleIdentifier(std::optional<std::string> chosen, std::filesystem::path root)
    : known_(std::move(chosen)), root_(std::move(root)) {
    if (!known_ || known_->empty()) {
        known_ = asciiWord(environment("FLATPAK_ID"));
    }
}

std::optional<std::string> BundleIdentifier::operator()() const {
    if (known_) {
        return known_;
    }
    auto name = readKey(root_ / ".flatpak-info", "Application", "name");
    return name ? asciiWord(*std::move(name)) : std::nullopt;
}

} // namespace morvellacinto::native
