// What can break here: a state set twice or never given back, a refusal that is silent or noisy, a request that outlives its
// process or is handed to a child, a login manager that hangs us.
#include "core/sleep_preventer.h"
#include "foundation/uv/loop.h"
#include "platform/execution_state.h"
#include "platform/pipe_path.h"
#include "support/child_process.h"
#include "support/log_capture.h"
#include "support/scoped_variable.h"
#include "support/system_bus.h"
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using core::SleepPreventer;
using platform::SetThreadExecutionState;
using testing::ElementsAre;

/// Runs `work` on a thread that has a current loop: this one.
void onLoop(folly::Function<void()> work)
{
    fn::uv::Loop loop;
    loop.post([&] {
        work();
        loop.stop();
    });
    loop.run();
}

constexpr const char* refused = "1 core.sleepPreventer Failed to set system sleep state";

TEST(SleepPreventer, SetsTheStateThatIsKnownFirstAndRestoresItLast)
{
    struct Row {
        const char* what;
        std::vector<platform::EXECUTION_STATE> known; // Besides those that are restored.
        std::vector<platform::EXECUTION_STATE> asked;
        std::vector<std::string> log;
    };
    const Row rows[] = {
        { "all", { 0x80000041, 0x80000001 }, { 0x80000041, 0x80000002 }, {} },
        { "no away mode", { 0x80000001 }, { 0x80000041, 0x80000001, 0x80000002 }, {} },
        { "none", {}, { 0x80000041, 0x80000001, 0x80000000 }, { refused } },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        std::vector<platform::EXECUTION_STATE> asked;
        platform::EXECUTION_STATE state = 0x80000002; // Somebody keeps the display on.
        const platform::ScopedExecutionState backend([&](platform::EXECUTION_STATE flags) {
            asked.push_back(flags);
            const bool isKnown = std::ranges::count(row.known, flags) > 0 || flags == 0x80000002;
            return isKnown ? std::exchange(state, flags) : 0;
        });
        onLoop([&] {
            for (int time = 0; time < 2; ++time) {
                const test::LogCapture log(5);
                {
                    const SleepPreventer first;
                    auto second = std::make_unique<SleepPreventer>(first);
                    SleepPreventer third;
                    third = *second; // There are as many as before.
                    second.reset();
                    EXPECT_EQ(asked.size() + 1, row.asked.size());
                }
                EXPECT_EQ(std::exchange(asked, {}), row.asked);
                EXPECT_EQ(log.lines(), row.log);
            }
        });
    }
}

// --- The login manager

struct SystemSleep : testing::Test {
    std::optional<test::SystemBus> bus { std::in_place };
    std::optional<test::LoginManager> manager { std::in_place };
};

TEST_F(SystemSleep, IsAskedWhileAPreventerLivesAndOnlyThen)
{
    const test::LogCapture log(5);
    std::optional<test::ChildProcess> child;
    for (int time = 0; time < 2; ++time) {
        onLoop([&] {
            const SleepPreventer preventer;
            const SleepPreventer another;
            EXPECT_EQ(manager->readLine(), "sleep block held");
            // A program that is started meanwhile lives on, and has nothing of it.
            child.emplace(std::vector<std::string> { "/bin/sh", "-c", "echo up; kill -STOP $$" });
            EXPECT_EQ(child->readLine(), "up");
            EXPECT_EQ(SetThreadExecutionState(0x80000001), 0x80000001U); // No second request.
        });
        EXPECT_EQ(manager->readLine(), "released");
    }
    EXPECT_THAT(log.lines(), ElementsAre());
}

TEST_F(SystemSleep, GivesThePreviousStateAndRefusesWhatThisSystemHasNot)
{
    for (const auto unsupported : { 0x80000041U, 0x80000003U, 0x80000002U, 0x80000004U, 1U, 0U })
        EXPECT_EQ(SetThreadExecutionState(unsupported), 0U) << unsupported;
    EXPECT_EQ(SetThreadExecutionState(0x80000000), 0x80000000U);
    EXPECT_EQ(SetThreadExecutionState(0x80000001), 0x80000000U);
    EXPECT_EQ(SetThreadExecutionState(0x80000041), 0U); // Refused: the state is as before.
    EXPECT_EQ(manager->readLine(), "sleep block held");
    bus.reset(); // The bus may go; the request does not depend on it, and neither do we.
    EXPECT_EQ(SetThreadExecutionState(0x80000000), 0x80000001U);
    EXPECT_EQ(SetThreadExecutionState(0x80000001), 0U);
}

TEST_F(SystemSleep, ThatIsMissingOrSaysNoOrNothingIsAFailureThatIsTold)
{
    const auto fails = [](const char* what) {
        const test::LogCapture log(5);
        onLoop([] { const SleepPreventer preventer; });
        EXPECT_THAT(log.lines(), ElementsAre(refused)) << what;
    };
    manager.reset();
    fails("no manager");
    manager.emplace("useless");
    fails("useless");
    manager.reset();
    manager.emplace("silent");
    fails("silent"); // It is not waited for for ever.
    EXPECT_EQ(manager->readLine(), "asked");
    for (const auto* address : { "unix:path=/nowhere/at-all", "no address" }) {
        const test::ScopedVariable variable("DBUS_SYSTEM_BUS_ADDRESS", address);
        fails(address);
    }
}

TEST(SilentBus, IsNotWaitedFor)
{
    const test::TemporaryFolder folder;
    const auto path = folder.file("silent");
    const auto address = platform::socketAddress(path);
    const test::ScopedVariable variable("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + path.toStdString());
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(::listen(listener, 1), 0);
    EXPECT_EQ(SetThreadExecutionState(0x80000001), 0U);

    // One that lets everybody in and falls silent then.
    ::close(::accept(listener, nullptr, nullptr));
    std::jthread bus([listener] {
        constexpr std::string_view welcome =
            "REJECTED EXTERNAL\r\nOK 0123456789abcdef0123456789abcdef\r\nAGREE_UNIX_FD\r\n";
        const int client = ::accept(listener, nullptr, nullptr);
        EXPECT_EQ(::send(client, welcome.data(), welcome.size(), MSG_NOSIGNAL), static_cast<ssize_t>(welcome.size()));
        char bytes[1024];
        while (::read(client, bytes, sizeof(bytes)) > 0) { }
        ::close(client);
    });
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(SetThreadExecutionState(0x80000001), 0U);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(15)); // GIO's own patience is longer.
    bus.join();
    ::close(listener);
}

} // namespace
