#pragma once

#include "morvellacinto/platform/Platform.h"
#include "morvellacinto/scripted/ScriptedPhone.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace morvellacinto {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A test of the library on a scripted phone of its own. A platform is installed once in a
/// process, so each test must be a process, as CTest runs them.
///
/// Fails a test that leaves behind what it did not look at: log lines, failed assertions, queued
/// blocks or exceptions that escaped from one.
class ScriptedPhoneTest : public ::testing::Test {
protected:
    ScriptedPhoneTest() { platform::install(phone); }

    void TearDown() override {
        EXPECT_THAT(phone->takeLog(), ::testing::IsEmpty()) << "lines that no test declared";
        EXPECT_EQ(phone->assertionHandler().takeFailures().size(), 0U);
        EXPECT_EQ(phone->dispatch().waitingCount(), 0U) << "blocks that no test ran";
        platform::shutdown();
    }

    /// Requires the log to be exactly `lines`, and clears it.
    void expectLog(const std::vector<std::string>& lines) { EXPECT_EQ(phone->takeLog(), lines); }

    const std::shared_ptr<scripted::ScriptedPhone> phone = scripted::ScriptedPhone::create();
};

} // namespace morvellacinto
