// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/Diagnostics.h"
#include "morvellacinto/platform/Platform.h"
#include "morvellacinto/scripted/ScriptedPhone.h"

#include <gmock/gmock.h>

namespace morvellacinto {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Texts = std::vector<std::string>;

/// A test of the library on a scripted phone of its own. A platform is installed once in a
/// process, so each test must be a process, as CTest runs them.
///
/// Fails a test that leaves behind what it did not look at: log lines, failed assertions, queued
/// blocks or exceptions that escaped from one.
struct ScriptedPhoneTest : ::testing::Test {
    ScriptedPhoneTest() { platform::install(phone); }

    void TearDown() override {
        EXPECT_THAT(phone->takeLog(), IsEmpty()) << "lines that no test declared";
        EXPECT_EQ(phone->assertionHandler().takeFailures().size(), 0U);
        EXPECT_EQ(phone->dispatch().waitingCount(), 0U) << "blocks that no test ran";
        platform::shutdown();
    }

    /// Requires the log to be exactly `lines`, and clears it.
    void expectLog(const Texts& lines) { EXPECT_EQ(phone->takeLog(), lines); }
    /// The sentences of the diagnostics since the last call.
    Texts told() {
        Texts sentences;
        for (const platform::Diagnostic& record : phone->diagnostics()->takeRecords()) {
            sentences.push_back(sentenceOf(record));
        }
        return sentences;
    }

    const std::shared_ptr<scripted::ScriptedPhone> phone = scripted::ScriptedPhone::create();
};

} // namespace morvellacinto
