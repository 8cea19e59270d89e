// SPDX-License-Identifier: MIT
#include "DeviceOverNative.h"

namespace morvellacinto::host {

DeviceOverNative::DeviceOverNative(std::shared_ptr<native::NativePlatform> machine,
                                   scripted::PhoneScript phone)
    : DeviceOverNative(std::move(machine),
                       std::make_shared<scripted::SharedScript>(std::move(phone))) {}

// A client of the location service may outlive this object.
DeviceOverNative::DeviceOverNative(std::shared_ptr<native::NativePlatform> machine,
                                   const std::shared_ptr<scripted::SharedScript>& phone)
    : machine_(std::move(machine)), device_(phone, machine_->dispatch()),
      location_(phone, std::shared_ptr<platform::Dispatch>(machine_, &machine_->dispatch()),
                [weak = std::weak_ptr(delayed_)](auto delay, auto block) {
                    if (const auto delayed = weak.lock()) {
                        delayed->add(delay, std::move(block));
                    }
                }) {}

} // namespace morvellacinto::host
