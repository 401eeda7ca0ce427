// What can break here: a state set twice or never given back, a refusal that is silent or noisy, a request that outlives its
// process or is handed to a child, a login manager that hangs us.
#include "core/sleep_preventer.h"
#include "foundation/uv/loop.h"
#include "platform/execution_state.h"
#include "platform/pipe_path.h"
#include "support/child_process.h"
#include "support/log_capture.h"
#include "support/system_bus.h"
#include "support/temporary_folder.h"
#include <chrono>
#include <cstdlib>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using core::SleepPreventer;
using platform::SetThreadExecutionState;
using testing::ElementsAre;
using States = std::vector<platform::EXECUTION_STATE>;

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

// --- What is asked of the system

/// A system that knows some states and remembers what it was asked for.
struct SleepStates : testing::Test {
    bool knowsAwayMode = true;
    bool refusesAll = false;
    States asked;
    platform::EXECUTION_STATE state = 0x80000002; // Somebody keeps the display on.
    platform::ScopedExecutionState backend { [this](platform::EXECUTION_STATE flags) -> platform::EXECUTION_STATE {
        asked.push_back(flags);
        const bool isAwayMode = (flags & 0x40) != 0;
        return refusesAll || (isAwayMode && !knowsAwayMode) ? 0 : std::exchange(state, flags);
    } };
    test::LogCapture log { 5 };
};

TEST_F(SleepStates, AreSetByTheFirstAndRestoredByTheLast)
{
    onLoop([&] {
        {
            const SleepPreventer first;
            auto second = std::make_unique<SleepPreventer>(first);
            SleepPreventer third;
            third = first; // There are as many as before.
            third = *second;
            second.reset();
            EXPECT_THAT(asked, ElementsAre(0x80000041));
        }
        EXPECT_THAT(asked, ElementsAre(0x80000041, 0x80000002));
        const SleepPreventer again;
        EXPECT_EQ(asked.size(), 3U);
    });
    EXPECT_THAT(asked, ElementsAre(0x80000041, 0x80000002, 0x80000041, 0x80000002));
    EXPECT_THAT(log.lines(), ElementsAre());
}

TEST_F(SleepStates, AreThePlainerOnesWhereAwayModeIsUnknownAndToldOfOnceEachTimeWhereAllAreRefused)
{
    for (const bool all : { false, true }) {
        SCOPED_TRACE(all);
        knowsAwayMode = false;
        refusesAll = all;
        asked.clear();
        onLoop([&] {
            for (int time = 0; time < 2; ++time) {
                const SleepPreventer first;
                const SleepPreventer second;
            }
        });
        const platform::EXECUTION_STATE last = all ? 0x80000000 : 0x80000002;
        EXPECT_THAT(asked, ElementsAre(0x80000041, 0x80000001, last, 0x80000041, 0x80000001, last));
        EXPECT_EQ(log.lines(), all ? std::vector<std::string>(2, refused) : std::vector<std::string>());
    }
}

// --- The login manager

struct SystemSleep : testing::Test {
    ~SystemSleep() override { ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS"); }

    static void setAddress(const std::string& address)
    {
        ASSERT_EQ(::setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1), 0);
    }

    test::TemporaryFolder folder;
    std::optional<test::SystemBus> bus;
    std::optional<test::LoginManager> manager;
};

TEST_F(SystemSleep, IsAskedWhileAPreventerLivesAndOnlyThen)
{
    bus.emplace();
    manager.emplace();
    const test::LogCapture log(5);
    std::optional<test::ChildProcess> child;
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
    EXPECT_THAT(log.lines(), ElementsAre());

    onLoop([&] {
        const SleepPreventer preventer;
        EXPECT_EQ(manager->readLine(), "sleep block held");
    });
    EXPECT_EQ(manager->readLine(), "released");
}

TEST_F(SystemSleep, GivesThePreviousStateAndRefusesWhatThisSystemHasNot)
{
    bus.emplace();
    manager.emplace();
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
    const auto fails = [] {
        const test::LogCapture log(5);
        onLoop([] { const SleepPreventer preventer; });
        EXPECT_THAT(log.lines(), ElementsAre(refused));
    };
    setAddress("unix:path=" + folder.file("nobody").toStdString());
    fails();
    setAddress("no address");
    fails();
    bus.emplace();
    fails();
    manager.emplace("useless");
    fails();
    manager.reset();
    manager.emplace("silent");
    fails(); // It is not waited for for ever.
    EXPECT_EQ(manager->readLine(), "asked");
}

TEST_F(SystemSleep, IsNotWaitedForWhereTheBusItselfIsSilent)
{
    const auto path = folder.file("silent");
    const auto address = platform::socketAddress(path);
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(::listen(listener, 1), 0);
    setAddress("unix:path=" + path.toStdString());
    EXPECT_EQ(SetThreadExecutionState(0x80000001), 0U);

    // One that lets everybody in and falls silent then.
    const int refused = ::accept(listener, nullptr, nullptr);
    ::close(refused);
    std::jthread bus([listener] {
        constexpr std::string_view welcome =
            "REJECTED EXTERNAL\r\nOK 0123456789abcdef0123456789abcdef\r\nAGREE_UNIX_FD\r\n";
        const int client = ::accept(listener, nullptr, nullptr);
        EXPECT_EQ(::send(client, welcome.data(), welcome.size(), MSG_NOSIGNAL), static_cast<ssize_t>(welcome.size()));
        char bytes[1024];
        std::string received;
        for (ssize_t count = 0; (count = ::read(client, bytes, sizeof(bytes))) > 0;) received.append(bytes, count);
        EXPECT_THAT(received, testing::HasSubstr("Hello"));
        ::close(client);
    });
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(SetThreadExecutionState(0x80000001), 0U);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(15)); // GIO's own patience is longer.
    bus.join();
    ::close(listener);
}

} // namespace
