// What can break here, with the firewall that programs get: what one asks for and another is told; rights without the user's
// consent; a failure that is taken for success; objects, texts or uses of COM left behind, or taken from somebody else.
#include "core/services/firewall_configurator/firewall_configurator.h"
#include "platform/com/elevation_prompt.h"
#include "platform/firewall/firewall_file.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include <gtest/gtest.h>
#include <new>

namespace {

using core::FirewallConfigurator;
using namespace platform;
using Make = std::unique_ptr<FirewallConfigurator> (*)();

const fn::String path = "/opt/Zürich 𝄞/server";
const fn::String name = "Lumen \xFC Hall";

struct Firewall : testing::TestWithParam<Make> {
    ~Firewall() override
    {
        configurator.reset();
        EXPECT_EQ(DllCanUnloadNow(), S_OK) << "An object or a text is left.";
        // The mode of this thread is free again.
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        CoUninitialize();
    }

    test::TemporaryFolder folder;
    ScopedFirewallFile file { folder.file("firewall.rules") };
    int failing = -1; // The number of the call of COM or of its objects that fails; no such one: none.
    bool isThrowing = false; // As when there is no memory.
    int calls = 0;
    ScopedComFailure failure { [this] {
        const bool fails = calls++ == failing;
        return fails && isThrowing ? throw std::bad_alloc() : fails;
    } };
    bool isGranted = true;
    int asked = 0;
    ScopedElevationPrompt prompt { [this](const fn::String&) {
        ++asked;
        return isGranted;
    } };
    bool isAdvanced = GetParam() == FirewallConfigurator::createAdvancedConfigurator;
    std::unique_ptr<FirewallConfigurator> configurator = GetParam()();

    static bool authorize(bool inbound, bool outbound, const fn::String& application = path)
    {
        return GetParam()()->authorizeApplication(application, name, inbound, outbound);
    }
    /// What somebody without rights is told: directions that are open.
    static std::string directions(const fn::String& application)
    {
        const auto configurator = GetParam()();
        bool inbound = false;
        bool outbound = false;
        EXPECT_TRUE(configurator->initialize(false));
        EXPECT_TRUE(configurator->isApplicationAuthorized(inbound, outbound, application));
        return std::string(inbound ? "in" : "") + (outbound ? "out" : "");
    }
    std::optional<bool> isOn() const
    {
        bool result = false;
        return configurator->isFirewallEnabled(result) ? std::optional(result) : std::nullopt;
    }
};

INSTANTIATE_TEST_SUITE_P(Both, Firewall,
    testing::Values(FirewallConfigurator::createBaseConfigurator, FirewallConfigurator::createAdvancedConfigurator));

TEST_P(Firewall, TellsOthersWhatWasAuthorized)
{
    EXPECT_TRUE(authorize(false, false));
    EXPECT_EQ(directions(path), "");
    EXPECT_TRUE(authorize(true, false));
    EXPECT_EQ(directions(path), isAdvanced ? "in" : "inout");
    EXPECT_EQ(directions("/opt/Zürich 𝄞/Server"), "");
    EXPECT_TRUE(authorize(false, true));
    EXPECT_EQ(directions(path), "inout");
}

// Objects and uses of COM that stay behind are seen at the end of the test.
TEST_P(Firewall, TellsTheTruthAndKeepsNothingWhicheverCallFails)
{
    const test::LogCapture log;
    for (const bool throws : { false, true }) {
        isThrowing = throws;
        for (int number = 0, last = 1; number <= last; ++number) { // In the end none fails.
            SCOPED_TRACE(fmt::format("call {} {}", number, throws ? "throws" : "fails"));
            std::filesystem::remove(firewallFile().toStdString());
            configurator = GetParam()();
            failing = number;
            calls = 0;
            const bool isAuthorized = configurator->authorizeApplication(path, name, true, true);
            last = calls;
            EXPECT_TRUE(isAuthorized || number < last);
            failing = -1;
            const auto admitted = directions(path);
            EXPECT_EQ(admitted.ends_with("out"), isAuthorized) << "The last direction decides: " << admitted;
            EXPECT_TRUE(configurator->initialize(false)) << "The older one ends its use of COM only now.";

            failing = number;
            calls = 0;
            bool inbound = false;
            bool outbound = false;
            configurator->isApplicationAuthorized(inbound, outbound, path);
            EXPECT_TRUE(!admitted.empty() || !(inbound || outbound));
            failing = -1;
            last = std::max(last, calls);
            configurator.reset();
            EXPECT_EQ(DllCanUnloadNow(), S_OK);
        }
    }
}

TEST_P(Firewall, ConnectsAnewOnlyForMoreRightsAndChangesNothingIfTheyAreRefused)
{
    const test::LogCapture log;
    bool inbound = false;
    bool outbound = false;
    EXPECT_EQ(isOn(), std::nullopt) << "It is not initialized.";
    EXPECT_FALSE(configurator->isApplicationAuthorized(inbound, outbound, path));
    EXPECT_TRUE(configurator->initialize(false));
    isGranted = false;
    EXPECT_FALSE(configurator->authorizeApplication(path, name, true, true));
    EXPECT_TRUE(log.contains("1 core.firewall Could not get elevated privileges!"));
    EXPECT_EQ(isOn(), std::nullopt);
    EXPECT_TRUE(configurator->initialize(false)) << "Nor are the rights taken for granted.";
    EXPECT_EQ(directions(path), "");
    isGranted = true;
    for (const auto& noAnswer : { ElevationPrompt(), ElevationPrompt([](auto&) -> bool { throw 1; }) }) {
        const ScopedElevationPrompt nobody(noAnswer);
        testing::internal::CaptureStderr();
        EXPECT_FALSE(configurator->authorizeApplication(path, name, true, true));
        const auto told = testing::internal::GetCapturedStderr();
        EXPECT_EQ(told.contains("Refused: a request to change which programs the firewall admits."), !noAnswer);
    }
    for (const bool isElevated : { true, true, false }) EXPECT_TRUE(configurator->initialize(isElevated));
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(isOn(), true) << "Where nothing is recorded.";
    test::writeFile(firewallFile(), "[Rule 1"); // Damaged.
    EXPECT_EQ(isOn(), std::nullopt);
    EXPECT_FALSE(configurator->authorizeApplication(path, name, true, true));
}

TEST_P(Firewall, TellsPathsApartThatAreNoUtf8)
{
    // A path that is no UTF-8 is not that of another program, and none at all would be all of them.
    const test::LogCapture log(1);
    for (const auto* refused : { "/opt/Z\xFCrich/server", "" }) EXPECT_FALSE(authorize(true, true, refused)) << refused;
    EXPECT_EQ(log.lines().size(), 2u);
    EXPECT_TRUE(authorize(true, true, "/opt/Z\uFFFDrich/server"));
    EXPECT_EQ(directions("/opt/Z\uFFFDrich/server"), "inout");
    EXPECT_EQ(directions("/opt/Z\xFCrich/server"), "");
}

TEST_P(Firewall, IsOnIfItIsOnForAllCurrentNetworks)
{
    EXPECT_TRUE(configurator->initialize(false));
    for (int state = 0; state < 64; ++state) {
        const int current = state / 8, on = state % 8;
        test::writeFile(firewallFile(),
            fmt::format("[Profiles]\ncurrent={}\ndomain={}\nprivate={}\npublic={}\n", current, (on & 1) != 0,
                (on & 2) != 0, (on & 4) != 0));
        EXPECT_EQ(isOn(), (current & ~on) == 0) << current << " of " << on;
    }
}

} // namespace
