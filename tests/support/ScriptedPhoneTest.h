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

/// A test on a scripted phone of its own, in a process of its own: a platform is installed once.
/// It fails when it leaves log lines, failed assertions, queued blocks or exceptions behind.
struct ScriptedPhoneTest : ::testing::Test {
    ScriptedPhoneTest() { platform::install(phone); }

    void TearDown() override {
        EXPECT_THAT(phone->takeLog(), IsEmpty()) << "lines that no test declared";
        EXPECT_EQ(phone->assertionHandler().takeFailures().size(), 0U);
        EXPECT_EQ(phone->dispatch().waitingCount(), 0U) << "blocks that no test ran";
        platform::shutdown();
    }

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
