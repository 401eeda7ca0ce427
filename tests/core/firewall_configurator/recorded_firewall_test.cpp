// What can break here, with the firewall that programs get: what one asks for and another is told; rights without the user's
// consent; objects or COM left behind.
#include "core/firewall_configurator/firewall_configurator.h"
#include "platform/com/com.h"
#include "platform/com/elevation_prompt.h"
#include "platform/firewall/firewall_file.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include <gmock/gmock.h>

namespace {

using core::FirewallConfigurator;
using testing::ElementsAre;
using Make = std::unique_ptr<FirewallConfigurator> (*)();

const fn::String path = "/opt/Zürich 𝄞/server";
const fn::String name = "Lumen Hall";

struct RecordedFirewall : testing::TestWithParam<Make> {
    ~RecordedFirewall() override
    {
        EXPECT_EQ(platform::DllCanUnloadNow(), platform::S_OK) << "An object is left.";
        // The mode of this thread is free again.
        EXPECT_EQ(platform::CoInitializeEx(nullptr, platform::COINIT_MULTITHREADED), platform::S_OK);
        platform::CoUninitialize();
    }

    test::TemporaryFolder folder;
    platform::ScopedFirewallFile file { folder.file("firewall.rules") };
    bool isGranted = true;
    platform::ScopedElevationPrompt prompt { [this](const fn::String&) { return isGranted; } };
    bool isAdvanced = GetParam() == FirewallConfigurator::createAdvancedConfigurator;

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
};

INSTANTIATE_TEST_SUITE_P(Both, RecordedFirewall,
    testing::Values(FirewallConfigurator::createBaseConfigurator, FirewallConfigurator::createAdvancedConfigurator));

TEST_P(RecordedFirewall, TellsOthersWhatWasAuthorized)
{
    EXPECT_EQ(directions(path), "");
    EXPECT_TRUE(authorize(true, false));
    EXPECT_EQ(directions(path), isAdvanced ? "in" : "inout");
    EXPECT_EQ(directions("/opt/Zürich 𝄞/Server"), "");
    EXPECT_TRUE(authorize(false, true));
    EXPECT_EQ(directions(path), "inout");
}

TEST_P(RecordedFirewall, TakesNoPathThatIsNoUtf8ForThatOfAnotherProgram)
{
    const fn::String odd = "/opt/Z\xFCrich/server";
    {
        const test::LogCapture log;
        EXPECT_FALSE(authorize(true, true, odd));
        EXPECT_THAT(log.lines(), ElementsAre("1 core.firewall Conversion of process file name string failed!"));
    }
    {
        const test::LogCapture log(1);
        EXPECT_FALSE(authorize(true, true, "")); // Nor none at all, which would be all of them.
        EXPECT_THAT(log.lines(), testing::SizeIs(1));
    }
    EXPECT_TRUE(authorize(true, true, "/opt/Z\uFFFDrich/server"));
    EXPECT_EQ(directions("/opt/Z\uFFFDrich/server"), "inout");
    EXPECT_EQ(directions(odd), "");
}

TEST_P(RecordedFirewall, ChangesNothingIfTheUserSaysNo)
{
    isGranted = false;
    std::vector<std::string> expected = { "1 core.firewall Could not get elevated privileges!" };
    if (isAdvanced) {
        expected.insert(expected.begin(), "1 core.firewall CoCreateInstance for INetFwPolicy2 failed: 0x800704c7\n");
    }
    {
        const test::LogCapture log;
        const auto configurator = GetParam()();
        EXPECT_FALSE(configurator->authorizeApplication(path, name, true, true));
        EXPECT_EQ(log.lines(), expected);
        EXPECT_TRUE(configurator->initialize(false)) << "So that the older one ends its use of COM, too.";
    }
    EXPECT_EQ(directions(path), "");
}

TEST_P(RecordedFirewall, FailsWhereTheFileIsDamaged)
{
    const auto configurator = GetParam()();
    EXPECT_TRUE(configurator->initialize(false));
    bool isOn = false;
    EXPECT_TRUE(configurator->isFirewallEnabled(isOn));
    EXPECT_TRUE(isOn);
    test::writeFile(platform::firewallFile(), "[Rule 1");
    const test::LogCapture log;
    EXPECT_FALSE(configurator->isFirewallEnabled(isOn));
    EXPECT_FALSE(authorize(true, true));
    EXPECT_TRUE(log.contains(isAdvanced ? "Can't retrieve firewall profile types!"
                                        : "Application couldn't be added to the application collection!"));
}

} // namespace
