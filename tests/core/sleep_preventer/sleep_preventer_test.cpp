// What can break here: a state set twice or never given back, a refusal that is silent or noisy, a request that outlives its
// process or is handed to a child, a login manager that hangs us.
#include "core/services/sleep_preventer.h"
#include "platform/execution_state.h"
#include "support/child_process.h"
#include "support/log_capture.h"
#include "support/run_until.h"
#include "support/scoped_variable.h"
#include "support/system_bus.h"
#include <gmock/gmock.h>

namespace {

using core::SleepPreventer;
using platform::SetThreadExecutionState;
using testing::ElementsAre;

constexpr const char* refused = "1 core.sleepPreventer Failed to set system sleep state";

struct SystemSleep : testing::Test {
    std::optional<test::SystemBus> bus { std::in_place };
    std::optional<test::LoginManager> manager { std::in_place };
};

TEST_F(SystemSleep, IsHeldOffWhileAPreventerLivesWhateverBecomesOfTheBusAndNoChildHasThat)
{
    const test::LogCapture log(5);
    std::optional<test::ChildProcess> child;
    for (int time = 0; time < 2; ++time) {
        test::onLoop([&] {
            const SleepPreventer first;
            auto second = std::make_unique<SleepPreventer>(first);
            SleepPreventer third;
            third = *second; // There are as many as before.
            second.reset();
            EXPECT_EQ(manager->readLine(), "sleep block held");
            // A program that is started meanwhile lives on, and has nothing of it.
            child.emplace(std::vector<std::string> { "/bin/sh", "-c", "echo up; kill -STOP $$" });
            EXPECT_EQ(child->readLine(), "up");
            EXPECT_EQ(SetThreadExecutionState(0x80000001), 0x80000001U); // No second request.
        });
        EXPECT_EQ(manager->readLine(), "released");
    }
    EXPECT_THAT(log.lines(), ElementsAre());
    EXPECT_EQ(SetThreadExecutionState(0x80000001), 0x80000000U);
    EXPECT_EQ(SetThreadExecutionState(0x80000041), 0U); // Not known here: the state is as before.
    bus.reset();
    EXPECT_EQ(SetThreadExecutionState(0x80000000), 0x80000001U);
    EXPECT_EQ(SetThreadExecutionState(0x80000001), 0U);
}

TEST_F(SystemSleep, ThatIsMissingOrSaysNoOrNothingIsAFailureThatIsTold)
{
    const auto fails = [](const char* what) {
        const test::LogCapture log(5);
        test::onLoop([] { const SleepPreventer preventer; });
        EXPECT_THAT(log.lines(), ElementsAre(refused)) << what;
    };
    manager.reset();
    fails("no manager");
    for (const auto* mode : { "useless", "silent" }) { // It is not waited for for ever.
        manager.reset();
        manager.emplace(mode);
        fails(mode);
    }
    EXPECT_EQ(manager->readLine(), "asked");
    const test::ScopedVariable nowhere("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere/at-all");
    fails("no bus");
}

} // namespace
