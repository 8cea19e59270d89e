// SPDX-License-Identifier: MIT
#include "Commands.h"
#include "DeviceOverNative.h"
#include "Journal.h"
#include "Options.h"
#include "PhoneFile.h"
#include "ValueText.h"

#include "morvellacinto/settings/KRSettingsManager.h"

#include <iostream>

namespace {

using namespace morvellacinto;
using namespace morvellacinto::host;

std::function<void(std::string_view)> toStandardError(std::string prefix) {
    return [prefix = std::move(prefix)](std::string_view text) {
        std::cerr << prefix + std::string(text) + "\n";
    };
}

std::shared_ptr<native::NativePlatform> makeMachine(const Options& options) {
    native::NativeOptions native;
    native.bundleIdentifier = options.bundle;
    native.dataDirectory = options.dataDirectory;
    native.trustAnchors = options.caFiles;
    native.developerLog = toStandardError("log: ");
    native.diagnostics = toStandardError("note: ");
    if (options.isVerbose || options.traceFile) {
        const auto journal = std::make_shared<Journal>(options.isVerbose, options.traceFile);
        native.observer = [journal](const platform::Diagnostic& record) { journal->write(record); };
    }
    native.beforeUpload = [send = options.sendAsked,
                           note = native.diagnostics](const auto& request, const auto& answer) {
        note((send ? "asked, and sent: " : "asked, and refused: ") + request.body.value_or(""));
        answer(send ? std::optional(request) : std::nullopt);
    };
    try {
        return native::NativePlatform::create(std::move(native));
    } catch (const std::exception& error) { // an unreadable trust anchor, no home to keep data in
        throw UsageError(error.what());
    }
}

scripted::PhoneScript phoneOf(const Options& options) {
    try {
        scripted::PhoneScript phone = readPhone(readObject(options.device));
        if (options.bundle) {
            phone.bundle = options.bundle;
        }
        return phone;
    } catch (const std::invalid_argument& error) {
        throw UsageError("the file \"" + options.device + "\": " + error.what());
    }
}

int run(const Options& options) {
    const auto machine = makeMachine(options);
    if (options.device == "native") {
        platform::install(machine);
    } else {
        platform::install(std::make_shared<DeviceOverNative>(machine, phoneOf(options)));
    }
    if (options.serviceUrl) {
        KRSettingsManager::setLocalSetting(*options.serviceUrl, "KRServiceURL");
    }
    ExitStatus status = success;
    for (int time = 0; time < options.times && status == success; ++time) {
        status = runCommand(options, *machine);
    }
    platform::shutdown();
    return status;
}

} // namespace

int main(int count, char** arguments) {
    try {
        const auto options = readOptions(count, arguments);
        return options ? run(*options) : success;
    } catch (const UsageError& error) {
        std::cerr << error.what() << '\n';
        return wrongUsage;
    } catch (const std::exception& error) {
        printError({"morvellacinto.host", 2, {{KRError::messageKey, error.what()}}});
        return failed;
    }
}
