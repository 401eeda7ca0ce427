// What can break here: a pointer, text or use of COM that is kept, or given back twice, where one of the calls fails; a failure
// that is taken for success; a wrong or missing log line; COM taken from somebody else who uses it on the same thread.
#include "core/firewall_configurator/firewall_configurator.h"
#include "counting_firewall.h"
#include "support/log_capture.h"
#include <gmock/gmock.h>

namespace {

using core::FirewallConfigurator;
using test::CountingFirewall;
using testing::ElementsAre;
using testing::IsEmpty;
using Lines = std::vector<std::string>;
using Make = std::unique_ptr<FirewallConfigurator> (*)();

const fn::String path = "/opt/Zürich 𝄞/server";
const fn::String name = "Lumen Hall";

/// A call of the firewall, and what an operation does where it fails.
struct Row {
    std::string call;
    bool result;
    Lines lines;
};

/// Runs an operation once with all calls working and once for each of them failing.
void failEachCall(Make make, const std::function<void(CountingFirewall&, FirewallConfigurator&)>& prepare,
    const std::function<bool(FirewallConfigurator&)>& operation, const std::vector<Row>& rows, const Lines& success,
    int leftBy = CountingFirewall::noCall)
{
    const int count = static_cast<int>(rows.size());
    for (int failing = CountingFirewall::noCall; failing < count; ++failing) {
        const bool isSuccess = failing == CountingFirewall::noCall;
        const Row expected = isSuccess ? Row { "", true, success } : rows[static_cast<std::size_t>(failing)];
        SCOPED_TRACE(fmt::format("fails at {} {}", failing, expected.call));
        CountingFirewall firewall;
        const platform::ScopedComBackend backend(firewall);
        auto configurator = make();
        prepare(firewall, *configurator);
        const auto prepared = static_cast<int>(firewall.calls.size());
        if (!isSuccess) firewall.failAt(prepared + failing);
        {
            const test::LogCapture log;
            EXPECT_EQ(operation(*configurator), expected.result);
            EXPECT_EQ(log.lines(), expected.lines);
        }
        configurator.reset();
        // The older interface's failed initialization leaves COM as it is.
        const bool isLeft = !isSuccess && failing > 0 && failing <= leftBy;
        EXPECT_EQ(firewall.imbalance(), isLeft ? "COM initialized 1 times" : "");
        if (!isSuccess) continue;
        Lines calls;
        for (const auto& row : rows) calls.push_back(row.call);
        firewall.calls.erase(firewall.calls.begin(), firewall.calls.begin() + prepared);
        EXPECT_EQ(firewall.calls, calls);
    }
}

void nothing(CountingFirewall&, FirewallConfigurator&) { }
void initialized(CountingFirewall&, FirewallConfigurator& configurator) { EXPECT_TRUE(configurator.initialize(false)); }

Lines error(const std::string& message) { return { "1 core.firewall " + message }; }

const Lines notElevated = error("Could not get elevated privileges!");
const Lines noList = error("Can't retrieve the list of authorized firewall applications!");
const Lines noPathText = error("Allocation of process file name string failed!");
const Lines noRules = error("Can't retrieve firewall rules!");
const Lines listed = { "5 core.firewall Authorized application " + path.toStdString()
    + " is enabled in the firewall." };
const Lines unlisted = { "5 core.firewall Authorized application " + path.toStdString()
    + " is disabled in the firewall." };

Lines afterUnlisted(const std::string& line) { return { unlisted[0], line }; }
Lines errorAfterUnlisted(const std::string& message) { return afterUnlisted("1 core.firewall " + message); }

TEST(BaseFirewallConfigurator, GivesEverythingBackWhereverAnOperationFails)
{
    const auto make = FirewallConfigurator::createBaseConfigurator;
    failEachCall(
        make, nothing, [](auto& configurator) { return configurator.initialize(false); },
        { { "CoInitializeEx", false, {} }, { "CoCreateInstance", false, {} }, { "manager.get_LocalPolicy", false, {} },
            { "policy.get_CurrentProfile", false, {} } },
        {}, 3);

    bool enabled = true;
    failEachCall(make, initialized, [&](auto& configurator) { return configurator.isFirewallEnabled(enabled); },
        { { "profile.get_FirewallEnabled", false, {} } }, {});
    EXPECT_FALSE(enabled);

    bool inbound = false;
    bool outbound = false;
    const auto ask = [&](auto& configurator) { return configurator.isApplicationAuthorized(inbound, outbound, path); };
    failEachCall(
        make,
        [](auto& firewall, auto& configurator) {
            initialized(firewall, configurator);
            firewall.listedApplication = path.toStdString();
        },
        ask,
        { { "profile.get_AuthorizedApplications", false, noList }, { "SysAllocStringLen", false, noPathText },
            { "applications.Item", true, unlisted },
            { "application.get_Enabled", false, error("Can't retrieve firewall application state") } },
        listed);

    failEachCall(
        make, nothing, [](auto& configurator) { return configurator.authorizeApplication(path, name, true, false); },
        { { "CoInitializeEx", false, notElevated }, { "CoGetObject", false, notElevated },
            { "manager.get_LocalPolicy", false, notElevated }, { "policy.get_CurrentProfile", false, notElevated },
            { "profile.get_AuthorizedApplications", false, noList }, { "SysAllocStringLen", false, noPathText },
            { "applications.Item", true,
                afterUnlisted("5 core.firewall Authorized application " + path.toStdString()
                    + " is now enabled in the firewall.\n") },
            { "profile.get_AuthorizedApplications", false, { unlisted[0], noList[0] } },
            { "CoCreateInstance", false,
                errorAfterUnlisted("Can't create an instance of authorized application object") },
            { "SysAllocStringLen", false, { unlisted[0], noPathText[0] } },
            { "application.put_ProcessImageFileName", false,
                errorAfterUnlisted("Configuration of application's image name failed!") },
            { "SysAllocStringLen", false,
                errorAfterUnlisted("Allocation of application's friendly name string failed!") },
            { "application.put_Name", false, errorAfterUnlisted("Setting of application's friendly name failed!") },
            { "applications.Add", false,
                errorAfterUnlisted("Application couldn't be added to the application collection!") } },
        afterUnlisted(
            "5 core.firewall Authorized application " + path.toStdString() + " is now enabled in the firewall.\n"),
        3);
}

TEST(AdvancedFirewallConfigurator, GivesEverythingBackWhereverAnOperationFails)
{
    const auto make = FirewallConfigurator::createAdvancedConfigurator;
    const Lines noCom = error("CoInitializeEx failed: 0x80004005\n");
    const Lines noPolicy = error("CoCreateInstance for INetFwPolicy2 failed: 0x80004005\n");
    failEachCall(make, nothing, [](auto& configurator) { return configurator.initialize(false); },
        { { "CoInitializeEx", false, noCom }, { "CoCreateInstance", false, noPolicy } }, {});

    bool enabled = true;
    failEachCall(make, initialized, [&](auto& configurator) { return configurator.isFirewallEnabled(enabled); },
        { { "policy.get_CurrentProfileTypes", false, error("get_CurrentProfileTypes failed: 0x80004005\n") },
            { "policy.get_FirewallEnabled", false, {} } },
        {});

    // The end of the list is no failure, and neither is a list that ends early.
    bool inbound = false;
    bool outbound = false;
    failEachCall(
        make,
        [](auto& firewall, auto& configurator) {
            initialized(firewall, configurator);
            firewall.rules = { { "/bin/other", platform::NET_FW_RULE_DIR_OUT } };
        },
        [&](auto& configurator) { return configurator.isApplicationAuthorized(inbound, outbound, path); },
        { { "policy.get_Rules", false, noRules },
            { "rules.get_Count", false, error("Can't retrieve the number of firewall rules!") },
            { "rules.get__NewEnum", true, {} }, { "enumeration.QueryInterface", true, {} },
            { "enumeration.Next", true, {} }, { "VariantChangeType", true, {} }, { "rule.QueryInterface", true, {} },
            { "rule.QueryInterface", true, {} }, { "rule.get_Name", true, {} },
            { "rule.get_ApplicationName", true, {} }, { "rule.get_Protocol", true, {} },
            { "rule.get_Enabled", true, {} }, { "rule.get_Direction", true, {} }, { "enumeration.Next", true, {} } },
        {});

    const Lines notAdded = error("Couldn't add firewall rule!");
    failEachCall(make, nothing,
        [](auto& configurator) { return configurator.authorizeApplication(path, name, true, true); },
        { { "CoInitializeEx", false, { noCom[0], notElevated[0] } },
            { "CoGetObject", false, { noPolicy[0], notElevated[0] } }, { "policy.get_Rules", false, noRules },
            { "policy.get_CurrentProfileTypes", false, error("Can't retrieve firewall profile types!") },
            { "CoCreateInstance", false, error("Can't create firewall rule!") }, { "SysAllocStringLen", false, {} },
            { "rule.put_Name", false, {} }, { "SysAllocStringLen", false, {} }, { "rule.put_Description", false, {} },
            { "SysAllocStringLen", false, {} }, { "rule.put_ApplicationName", false, {} },
            { "rule.put_Profiles", false, {} }, { "rule.put_Action", false, {} }, { "rule.put_Enabled", false, {} },
            // The last call decides.
            { "rule.put_Direction", true, notAdded }, { "rules.Add", true, notAdded },
            { "rule.put_Direction", false, notAdded }, { "rules.Add", false, notAdded } },
        {});
}

struct FirewallConfigurators : testing::TestWithParam<Make> {
    CountingFirewall firewall;
    platform::ScopedComBackend backend { firewall };
    std::unique_ptr<FirewallConfigurator> configurator = GetParam()();
    bool inbound = false;
    bool outbound = false;
    bool enabled = false;

    bool isAuthorized(const fn::String& application)
    {
        return configurator->isApplicationAuthorized(inbound, outbound, application);
    }
};

INSTANTIATE_TEST_SUITE_P(Both, FirewallConfigurators,
    testing::Values(FirewallConfigurator::createBaseConfigurator, FirewallConfigurator::createAdvancedConfigurator));

TEST_P(FirewallConfigurators, AnswerNothingBeforeTheyAreInitialized)
{
    const test::LogCapture log;
    EXPECT_FALSE(configurator->isFirewallEnabled(enabled));
    EXPECT_FALSE(isAuthorized(path));
    const auto line = error("Firewall profile has not been initialized yet!")[0];
    EXPECT_THAT(log.lines(), ElementsAre(line, line));
    EXPECT_THAT(firewall.calls, IsEmpty());
}

TEST_P(FirewallConfigurators, ConnectAnewOnlyForMoreRights)
{
    EXPECT_TRUE(configurator->initialize(false));
    EXPECT_TRUE(configurator->initialize(false));
    EXPECT_TRUE(configurator->initialize(true));
    const auto calls = firewall.calls;
    EXPECT_TRUE(configurator->initialize(true));
    EXPECT_TRUE(configurator->initialize(false));
    EXPECT_EQ(firewall.calls, calls);
    EXPECT_EQ(std::ranges::count(calls, "CoInitializeEx"), 2);
    EXPECT_EQ(std::ranges::count(calls, "CoGetObject"), 1);
    EXPECT_EQ(firewall.uninitializations, 1);
    EXPECT_THAT(firewall.moniker,
        testing::AnyOf("Elevation:Administrator!new:{304CE942-6E39-40D8-943A-B913C40C9CD4}",
            "Elevation:Administrator!new:{E2B3C97F-6AE1-41AC-817A-F6F92166D7DD}"));
}

TEST_P(FirewallConfigurators, HoldNothingAfterTheUserHasRefusedAndCanBeginAgain)
{
    const test::LogCapture log;
    EXPECT_TRUE(configurator->initialize(false));
    firewall.failAt(static_cast<int>(firewall.calls.size()) + 1); // CoGetObject.
    EXPECT_FALSE(configurator->initialize(true));
    EXPECT_FALSE(configurator->isFirewallEnabled(enabled));
    EXPECT_TRUE(configurator->initialize(false)) << "Nor are the rights taken for granted.";
    EXPECT_TRUE(configurator->isFirewallEnabled(enabled));
    configurator.reset();
    EXPECT_EQ(firewall.imbalance(), "");
    EXPECT_EQ(firewall.uninitializations, 3);
}

TEST_P(FirewallConfigurators, LeaveComToWhomeverUsesItInTheOtherMode)
{
    firewall.initialization = platform::RPC_E_CHANGED_MODE;
    EXPECT_TRUE(configurator->initialize(false));
    EXPECT_TRUE(configurator->initialize(true));
    configurator.reset();
    EXPECT_EQ(firewall.uninitializations, 0);
    EXPECT_EQ(firewall.imbalance(), "");

    firewall.initialization = platform::S_FALSE; // Used in the same mode: that counts.
    configurator = GetParam()();
    EXPECT_TRUE(configurator->initialize(false));
    configurator.reset();
    EXPECT_EQ(firewall.uninitializations, 1);
}

TEST_P(FirewallConfigurators, FailWhereSomethingThrows)
{
    EXPECT_TRUE(configurator->initialize(true));
    firewall.isThrowing = true;
    EXPECT_FALSE(configurator->isFirewallEnabled(enabled));
    EXPECT_FALSE(isAuthorized(path));
    EXPECT_FALSE(configurator->authorizeApplication(path, name, true, true));
    EXPECT_FALSE(GetParam()()->initialize(false));
    configurator.reset();
    EXPECT_EQ(firewall.imbalance(), "");
}

TEST(BaseFirewallConfigurator, TakesAnEntryForBothDirections)
{
    CountingFirewall firewall;
    const platform::ScopedComBackend backend(firewall);
    const auto configurator = FirewallConfigurator::createBaseConfigurator();
    EXPECT_TRUE(configurator->authorizeApplication(path, name, false, false));
    EXPECT_THAT(firewall.calls, IsEmpty()) << "For no direction nobody needs rights.";

    firewall.listedApplication = path.toStdString();
    EXPECT_TRUE(configurator->authorizeApplication(path, name, true, true));
    EXPECT_THAT(firewall.added, IsEmpty());
    bool inbound = false;
    bool outbound = false;
    EXPECT_TRUE(configurator->isApplicationAuthorized(inbound, outbound, path));
    EXPECT_TRUE(inbound && outbound);

    firewall.isListedApplicationEnabled = platform::VARIANT_FALSE;
    EXPECT_TRUE(configurator->isApplicationAuthorized(inbound, outbound, path));
    EXPECT_FALSE(inbound || outbound);
    EXPECT_TRUE(configurator->authorizeApplication(path, name, false, true));
    EXPECT_THAT(firewall.added, ElementsAre("application " + path.toStdString() + "|" + name.toStdString()));
}

TEST(AdvancedFirewallConfigurator, AddsOneRuleForEachDirection)
{
    CountingFirewall firewall;
    const platform::ScopedComBackend backend(firewall);
    const auto configurator = FirewallConfigurator::createAdvancedConfigurator();
    const auto rule =
        "Lumen Hall|Allow incoming network traffic to Lumen Hall|" + path.toStdString() + "|0x7fffffff|1|-1";
    EXPECT_TRUE(configurator->authorizeApplication(path, name, false, false));
    EXPECT_THAT(firewall.added, IsEmpty());
    EXPECT_TRUE(configurator->authorizeApplication(path, name, true, true));
    EXPECT_THAT(firewall.added, ElementsAre("rule 1 " + rule, "rule 2 " + rule));
}

TEST(AdvancedFirewallConfigurator, CountsTheRulesOfExactlyThatPath)
{
    CountingFirewall firewall;
    const platform::ScopedComBackend backend(firewall);
    const auto configurator = FirewallConfigurator::createAdvancedConfigurator();
    ASSERT_TRUE(configurator->initialize(false));
    const auto in = platform::NET_FW_RULE_DIR_IN;
    const auto out = platform::NET_FW_RULE_DIR_OUT;
    const auto odd = static_cast<platform::NET_FW_RULE_DIRECTION>(3);
    const auto authorized = [&](std::vector<CountingFirewall::Rule> rules) {
        firewall.rules = std::move(rules);
        firewall.calls.clear();
        bool inbound = true;
        bool outbound = true;
        EXPECT_TRUE(configurator->isApplicationAuthorized(inbound, outbound, "/a/Server"));
        return std::pair(inbound, outbound);
    };
    EXPECT_EQ(authorized({}), std::pair(false, false));
    EXPECT_EQ(authorized({ { "/a/server", in }, { "/a/Server ", out }, { "", in } }), std::pair(false, false));
    EXPECT_EQ(authorized({ { "/a/Server", in } }), std::pair(true, false));
    EXPECT_EQ(authorized({ { "", in }, { "/a/Server", odd } }), std::pair(false, true));
    EXPECT_EQ(authorized({ { "/a/Server", out }, { "/a/Server", in }, { "/a/Server", in } }), std::pair(true, true));
    EXPECT_EQ(std::ranges::count(firewall.calls, "enumeration.Next"), 2) << "Both are known by then.";
}

TEST(AdvancedFirewallConfigurator, IsOnIfItIsOnForAllCurrentNetworks)
{
    CountingFirewall firewall;
    const platform::ScopedComBackend backend(firewall);
    const auto configurator = FirewallConfigurator::createAdvancedConfigurator();
    ASSERT_TRUE(configurator->initialize(false));
    struct Case {
        int current;
        int on;
        bool enabled;
    };
    for (const auto& [current, on, expected] : { Case { 2, 2, true }, Case { 2, 5, false }, Case { 7, 7, true },
             Case { 7, 6, false }, Case { 7, 3, false }, Case { 5, 5, true }, Case { 0, 0, true } }) {
        firewall.currentTypes = current;
        firewall.typesThatAreOn = on;
        bool enabled = !expected;
        EXPECT_TRUE(configurator->isFirewallEnabled(enabled));
        EXPECT_EQ(enabled, expected) << current << " of " << on;
    }

    // A network that can not be asked counts as protected, unless it is the last.
    firewall.currentTypes = 3;
    firewall.typesThatAreOn = 2;
    bool enabled = false;
    firewall.failAt(static_cast<int>(firewall.calls.size()) + 1);
    EXPECT_TRUE(configurator->isFirewallEnabled(enabled));
    EXPECT_TRUE(enabled);
    firewall.failAt(static_cast<int>(firewall.calls.size()) + 2);
    EXPECT_FALSE(configurator->isFirewallEnabled(enabled));
}

} // namespace
