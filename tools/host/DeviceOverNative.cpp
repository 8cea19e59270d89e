#include "DeviceOverNative.h"

namespace morvellacinto::host {

DeviceOverNative::DeviceOverNative(std::shared_ptr<native::NativePlatform> machine,
                                   scripted::PhoneScript phone)
    : machine_(std::move(machine)),
      phone_(std::move(phone), machine_->dispatch(),
             [this](auto delay, auto block) { delayed_.add(delay, std::move(block)); }) {}

} // namespace morvellacinto::host
