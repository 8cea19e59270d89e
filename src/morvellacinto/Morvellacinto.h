// SPDX-License-Identifier: MIT
#pragma once

/// Start here. A host
/// 1. installs a platform once, before its first call: `platform::install(...)`, for example with
///    `native::NativePlatform::create(...)` of the Linux adapter;
/// 2. makes a `KRAudienceManager` with the service's token and calls `kovraTagsWithCompletion`;
/// 3. lets its loop run the platform's main queue, where completions arrive;
/// 4. calls `platform::shutdown()` when it wants no more of them.
#include "morvellacinto/Version.h"
#include "morvellacinto/audience/KRAudienceManager.h"
#include "morvellacinto/audience/RoundToN.h"
#include "morvellacinto/audience/Version.h"
#include "morvellacinto/context/BasePayload.h"
#include "morvellacinto/context/DeviceFacts.h"
#include "morvellacinto/context/Reachability.h"
#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/location/KRLocationManager.h"
#include "morvellacinto/platform/Platform.h"
#include "morvellacinto/settings/KRSettingsManager.h"
#include "morvellacinto/transport/KRNetworkDelegate.h"
#include "morvellacinto/transport/KRRequest.h"
#include "morvellacinto/transport/RequestExecution.h"
#include "morvellacinto/transport/ServiceEndpoint.h"

#if defined(__cpp_rtti) // which objects from JSON need
#include "morvellacinto/jsonmapping/AVJSON.h"
#endif
