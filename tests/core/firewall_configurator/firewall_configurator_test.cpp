// What can break here, with the firewall that programs get: what one asks for and another is told; rights without the user's
// consent; an object, text or use of COM that is kept, or given back twice, where one of the calls fails; a failure that is
// taken for success; a wrong or missing log line; COM taken from somebody else who uses it on the same thread.
#include "core/firewall_configurator/firewall_configurator.h"
#include "platform/com/com_backend.h"
#include "platform/com/elevation_prompt.h"
#include "platform/firewall/firewall_file.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include <gmock/gmock.h>
#include <set>

namespace {

using namespace platform;
using core::FirewallConfigurator;
using testing::ElementsAre;
using testing::IsEmpty;
using Lines = std::vector<std::string>;
using Make = std::unique_ptr<FirewallConfigurator> (*)();

const fn::String path = "/opt/Zürich 𝄞/server";
const fn::String name = "Lumen Hall";

/// COM as it is, of which one call may fail, and that knows what has not been given back.
class FailingCom final : public ComBackend {
public:
    static constexpr int noCall = -1;
    int failing = noCall; ///< The index among `calls`.
    Lines calls; ///< Those that can fail, in order.
    int initializations = 0; ///< Successful ones that were not undone.

    /// What somebody still holds, or has given back once too often; empty: nothing.
    std::string imbalance() const
    {
        std::string result;
        if (DllCanUnloadNow() != S_OK) result += "objects; ";
        if (!_texts.empty()) result += fmt::format("{} texts; ", _texts.size());
        if (_wrongFrees != 0) result += fmt::format("{} wrong frees; ", _wrongFrees);
        if (_hasLateObjects) result += "objects outlived COM; ";
        if (initializations != 0) result += fmt::format("COM initialized {} times", initializations);
        return result;
    }

    HRESULT coInitializeEx(void* reserved, DWORD mode) override
    {
        const auto result = fails("CoInitializeEx") ? E_FAIL : ComBackend::coInitializeEx(reserved, mode);
        if (SUCCEEDED(result)) ++initializations;
        return result;
    }
    void coUninitialize() override
    {
        _hasLateObjects = _hasLateObjects || (--initializations == 0 && DllCanUnloadNow() != S_OK);
        ComBackend::coUninitialize();
    }
    HRESULT coCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid, void** object) override
    {
        return fails("CoCreateInstance") ? E_FAIL : ComBackend::coCreateInstance(clsid, outer, context, iid, object);
    }
    HRESULT coGetObject(const OLECHAR* moniker, BIND_OPTS* options, REFIID iid, void** object) override
    {
        return fails("CoGetObject") ? E_FAIL : ComBackend::coGetObject(moniker, options, iid, object);
    }
    BSTR sysAllocStringLen(const OLECHAR* text, UINT length) override
    {
        if (fails("SysAllocStringLen")) return nullptr;
        const BSTR result = ComBackend::sysAllocStringLen(text, length);
        _texts.insert(result);
        return result;
    }
    void sysFreeString(BSTR text) override
    {
        if (text && _texts.erase(text) == 0)
            ++_wrongFrees;
        else
            ComBackend::sysFreeString(text);
    }
    HRESULT variantChangeType(VARIANT* target, const VARIANT* source, WORD flags, VARTYPE type) override
    {
        return fails("VariantChangeType") ? E_FAIL : ComBackend::variantChangeType(target, source, flags, type);
    }

private:
    bool fails(const char* call)
    {
        calls.emplace_back(call);
        return static_cast<int>(calls.size()) - 1 == failing;
    }

    std::set<BSTR> _texts;
    int _wrongFrees = 0;
    bool _hasLateObjects = false;
};

/// A firewall of the test's own, with its user.
struct Surroundings {
    test::TemporaryFolder folder;
    ScopedFirewallFile file { folder.file("firewall.rules") };
    bool isGranted = true;
    int asked = 0;
    ScopedElevationPrompt prompt { [this](const fn::String&) {
        ++asked;
        return isGranted;
    } };
    FailingCom com;
    ScopedComBackend backend { com };

    static std::string rules() { return test::readFile(firewallFile()); }
};

struct FirewallConfigurators : testing::TestWithParam<Make>, Surroundings {
    ~FirewallConfigurators() override
    {
        configurator.reset();
        EXPECT_EQ(com.imbalance(), "");
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK) << "The mode of this thread is not free again.";
        CoUninitialize();
    }

    static bool authorize(bool inbound, bool outbound, const fn::String& application = path)
    {
        return GetParam()()->authorizeApplication(application, name, inbound, outbound);
    }
    /// What somebody without rights is told: directions that are open.
    static std::string directions(const fn::String& application = path)
    {
        const auto other = GetParam()();
        bool inbound = false;
        bool outbound = false;
        EXPECT_TRUE(other->initialize(false));
        EXPECT_TRUE(other->isApplicationAuthorized(inbound, outbound, application));
        return std::string(inbound ? "in" : "") + (outbound ? "out" : "");
    }

    bool isAdvanced = GetParam() == FirewallConfigurator::createAdvancedConfigurator;
    std::unique_ptr<FirewallConfigurator> configurator = GetParam()();
};

INSTANTIATE_TEST_SUITE_P(Both, FirewallConfigurators,
    testing::Values(FirewallConfigurator::createBaseConfigurator, FirewallConfigurator::createAdvancedConfigurator));

Lines error(const std::string& message) { return { "1 core.firewall " + message }; }

TEST_P(FirewallConfigurators, TellOthersWhatWasAuthorized)
{
    EXPECT_EQ(directions(), "");
    EXPECT_TRUE(authorize(false, false));
    EXPECT_EQ(directions(), "");
    EXPECT_EQ(asked, isAdvanced ? 1 : 0) << "For no direction nobody needs rights.";
    EXPECT_TRUE(authorize(true, false));
    EXPECT_EQ(directions(), isAdvanced ? "in" : "inout");
    EXPECT_EQ(directions("/opt/Zürich 𝄞/Server"), "");
    EXPECT_TRUE(authorize(false, true));
    EXPECT_EQ(directions(), "inout");
    // Who asks first would ask the user at every start, were it not found again.
    EXPECT_TRUE(authorize(true, true, "/opt/Z\xFCrich/server"));
    EXPECT_EQ(directions("/opt/Z\xFCrich/server"), "inout");
}

TEST_P(FirewallConfigurators, AnswerNothingBeforeTheyAreInitialized)
{
    const test::LogCapture log;
    bool result = false;
    EXPECT_FALSE(configurator->isFirewallEnabled(result));
    EXPECT_FALSE(configurator->isApplicationAuthorized(result, result, path));
    const auto line = error("Firewall profile has not been initialized yet!")[0];
    EXPECT_THAT(log.lines(), ElementsAre(line, line));
    EXPECT_THAT(com.calls, IsEmpty());
}

TEST_P(FirewallConfigurators, ConnectAnewOnlyForMoreRights)
{
    EXPECT_TRUE(configurator->initialize(false));
    EXPECT_TRUE(configurator->initialize(false));
    EXPECT_TRUE(configurator->initialize(true));
    EXPECT_THAT(com.calls, ElementsAre("CoInitializeEx", "CoCreateInstance", "CoInitializeEx", "CoGetObject"));
    EXPECT_TRUE(configurator->initialize(true));
    EXPECT_TRUE(configurator->initialize(false));
    EXPECT_EQ(com.calls.size(), 4U);
    EXPECT_EQ(com.initializations, 1);
}

TEST_P(FirewallConfigurators, ChangeAndHoldNothingAfterTheUserHasRefusedAndCanBeginAgain)
{
    EXPECT_TRUE(configurator->initialize(false));
    isGranted = false;
    auto expected = error("Could not get elevated privileges!");
    if (isAdvanced) {
        expected.insert(expected.begin(), error("CoCreateInstance for INetFwPolicy2 failed: 0x800704c7\n")[0]);
    }
    {
        const test::LogCapture log;
        EXPECT_FALSE(configurator->authorizeApplication(path, name, true, true));
        EXPECT_EQ(log.lines(), expected);
    }
    bool isOn = false;
    EXPECT_FALSE(configurator->isFirewallEnabled(isOn));
    EXPECT_TRUE(configurator->initialize(false)) << "Nor are the rights taken for granted.";
    EXPECT_TRUE(configurator->isFirewallEnabled(isOn));
    EXPECT_TRUE(isOn);
    EXPECT_EQ(directions(), "");
}

TEST_P(FirewallConfigurators, LeaveComToWhomeverUsesIt)
{
    for (const auto mode : { COINIT_MULTITHREADED, COINIT_APARTMENTTHREADED }) {
        EXPECT_EQ(CoInitializeEx(nullptr, mode), S_OK);
        EXPECT_EQ(directions(), "");
        EXPECT_TRUE(authorize(true, true));
        EXPECT_EQ(com.initializations, 1) << mode;
        std::filesystem::remove(firewallFile().toStdString());
        CoUninitialize();
    }
}

TEST_P(FirewallConfigurators, SayWhatFailsWhereTheFileIsDamaged)
{
    EXPECT_TRUE(configurator->initialize(false));
    test::writeFile(firewallFile(), "[Rule 1");
    bool result = false;
    const test::LogCapture log;
    EXPECT_FALSE(configurator->isFirewallEnabled(result));
    EXPECT_EQ(configurator->isApplicationAuthorized(result, result, path), !isAdvanced);
    EXPECT_FALSE(authorize(true, true));
    if (isAdvanced) {
        EXPECT_THAT(log.lines(),
            ElementsAre(testing::StartsWith("1 core.firewall get_CurrentProfileTypes failed: 0x80070570"),
                error("Can't retrieve the number of firewall rules!")[0],
                error("Can't retrieve firewall profile types!")[0]));
    } else {
        EXPECT_EQ(log.lines().back(), error("Application couldn't be added to the application collection!")[0]);
    }
}

TEST_P(FirewallConfigurators, AdmitNobodyUnderANameThatCannotBeRecorded)
{
    const fn::String cut = std::string_view("/bin/a\0b", 8);
    const fn::String tooLong(std::string(5'000'000, 'x')); // For the file.
    const test::LogCapture log(1);
    EXPECT_TRUE(configurator->initialize(true));
    EXPECT_FALSE(configurator->authorizeApplication(cut, name, true, true));
    EXPECT_FALSE(configurator->authorizeApplication(path, cut, true, true));
    EXPECT_FALSE(configurator->authorizeApplication(path, tooLong, true, true));
    const auto notAdded = error("Couldn't add firewall rule!")[0];
    EXPECT_EQ(log.lines(),
        isAdvanced ? Lines({ notAdded, notAdded })
                   : Lines({ error("Configuration of application's image name failed!")[0],
                       error("Setting of application's friendly name failed!")[0],
                       error("Application couldn't be added to the application collection!")[0] }));
    EXPECT_FALSE(std::filesystem::exists(firewallFile().toStdString()));
}

// --- Where one call fails

/// A call, and what an operation does where it fails.
struct Row {
    std::string call;
    bool result;
    Lines lines;
};

/// Runs an operation once with all calls working and once for each of them failing.
void failEachCall(Make make, bool isInitialized, const std::string& rules,
    const std::function<bool(FirewallConfigurator&)>& operation, const std::vector<Row>& rows, const Lines& success,
    bool leavesCom = false)
{
    const int count = static_cast<int>(rows.size());
    for (int failing = FailingCom::noCall; failing < count; ++failing) {
        const bool isSuccess = failing == FailingCom::noCall;
        const Row expected = isSuccess ? Row { "", true, success } : rows[static_cast<std::size_t>(failing)];
        SCOPED_TRACE(fmt::format("fails at {} {}", failing, expected.call));
        Surroundings surroundings;
        auto& com = surroundings.com;
        if (!rules.empty()) test::writeFile(firewallFile(), rules);
        std::filesystem::permissions(surroundings.folder.path(), std::filesystem::perms::owner_all);
        auto configurator = make();
        if (isInitialized) {
            EXPECT_TRUE(configurator->initialize(false));
        }
        const auto prepared = com.calls.size();
        if (!isSuccess) com.failing = static_cast<int>(prepared) + failing;
        {
            const test::LogCapture log;
            EXPECT_EQ(operation(*configurator), expected.result);
            EXPECT_EQ(log.lines(), expected.lines);
        }
        configurator.reset();
        // The older interface's failed initialization leaves COM as it is.
        const bool isLeft = leavesCom && failing == 1;
        EXPECT_EQ(com.imbalance(), isLeft ? "COM initialized 1 times" : "");
        if (isLeft) CoUninitialize();
        if (!isSuccess) continue;
        Lines calls;
        for (const auto& row : rows) calls.push_back(row.call);
        EXPECT_EQ(Lines(com.calls.begin() + static_cast<std::ptrdiff_t>(prepared), com.calls.end()), calls);
    }
}

const Lines notElevated = error("Could not get elevated privileges!");
const Lines noPathText = error("Allocation of process file name string failed!");
const std::string unlisted =
    "5 core.firewall Authorized application " + path.toStdString() + " is disabled in the firewall.";
const std::string added =
    "5 core.firewall Authorized application " + path.toStdString() + " is now enabled in the firewall.\n";

bool isAuthorized(FirewallConfigurator& configurator)
{
    bool inbound = false;
    bool outbound = false;
    return configurator.isApplicationAuthorized(inbound, outbound, path);
}

bool authorize(FirewallConfigurator& configurator) { return configurator.authorizeApplication(path, name, true, true); }

TEST(BaseFirewallConfigurator, GivesEverythingBackWhereverACallFails)
{
    const auto make = FirewallConfigurator::createBaseConfigurator;
    failEachCall(
        make, false, "", [](auto& configurator) { return configurator.initialize(false); },
        { { "CoInitializeEx", false, {} }, { "CoCreateInstance", false, {} } }, {}, true);
    failEachCall(make, true, "", isAuthorized, { { "SysAllocStringLen", false, noPathText } }, { unlisted });
    const Lines notAdded = { unlisted, error("Application couldn't be added to the application collection!")[0] };
    failEachCall(make, false, "", authorize,
        { { "CoInitializeEx", false, notElevated }, { "CoGetObject", false, notElevated },
            { "SysAllocStringLen", false, noPathText },
            { "CoCreateInstance", false,
                { unlisted, error("Can't create an instance of authorized application object")[0] } },
            { "SysAllocStringLen", false, { unlisted, noPathText[0] } },
            { "SysAllocStringLen", false,
                { unlisted, error("Allocation of application's friendly name string failed!")[0] } },
            // In the collection itself.
            { "SysAllocStringLen", false, notAdded }, { "SysAllocStringLen", false, notAdded } },
        { unlisted, added }, true);
}

TEST(AdvancedFirewallConfigurator, GivesEverythingBackWhereverACallFails)
{
    const auto make = FirewallConfigurator::createAdvancedConfigurator;
    const Lines noCom = error("CoInitializeEx failed: 0x80004005\n");
    const Lines noPolicy = error("CoCreateInstance for INetFwPolicy2 failed: 0x80004005\n");
    failEachCall(make, false, "", [](auto& configurator) { return configurator.initialize(false); },
        { { "CoInitializeEx", false, noCom }, { "CoCreateInstance", false, noPolicy } }, {});
    const Lines notAdded = error("Couldn't add firewall rule!");
    // A list that ends early is no failure.
    failEachCall(make, true,
        "[Rule 1]\nname=a\ndescription=\napplicationName=/bin/other\nprotocol=6\nprofiles=1\ndirection=1\naction=1\n"
        "enabled=true\n",
        isAuthorized,
        { { "VariantChangeType", true, {} }, { "SysAllocStringLen", true, {} }, { "SysAllocStringLen", true, {} } },
        {});
    failEachCall(make, false, "", authorize,
        { { "CoInitializeEx", false, { noCom[0], notElevated[0] } },
            { "CoGetObject", false, { noPolicy[0], notElevated[0] } },
            { "CoCreateInstance", false, error("Can't create firewall rule!") },
            // Without its path a rule would admit every program.
            { "SysAllocStringLen", false, {} }, { "SysAllocStringLen", false, {} }, { "SysAllocStringLen", false, {} },
            // In the collection itself: the last direction decides.
            { "SysAllocStringLen", true, notAdded }, { "SysAllocStringLen", true, notAdded },
            { "SysAllocStringLen", true, notAdded }, { "SysAllocStringLen", false, notAdded },
            { "SysAllocStringLen", false, notAdded }, { "SysAllocStringLen", false, notAdded } },
        {});
}

// --- What each of them records and reads

struct FirewallRules : testing::Test, Surroundings {
    static std::string rule(std::string_view application, int direction)
    {
        static int number = 0;
        return fmt::format("[Rule {}]\nname=a\ndescription=\napplicationName={}\nprotocol=6\nprofiles=1\n"
                           "direction={}\naction=1\nenabled=false\n",
            ++number, application, direction);
    }
    static void record(const std::string& rules)
    {
        test::writeFile(firewallFile(), rules);
        std::filesystem::permissions(firewallFile().toStdString(), std::filesystem::perms(0600));
    }
};

TEST_F(FirewallRules, OfTheOlderInterfaceAreOneEntryForBothDirections)
{
    const auto configurator = FirewallConfigurator::createBaseConfigurator();
    EXPECT_TRUE(authorize(*configurator));
    const auto before = rules();
    EXPECT_THAT(before, testing::HasSubstr("name=Lumen Hall"));
    EXPECT_TRUE(authorize(*configurator));
    EXPECT_EQ(rules(), before) << "It is there already.";

    auto disabled = before;
    disabled.replace(disabled.find("enabled=true"), 12, "enabled=false");
    record(disabled);
    bool inbound = true;
    bool outbound = true;
    EXPECT_TRUE(configurator->isApplicationAuthorized(inbound, outbound, path));
    EXPECT_FALSE(inbound || outbound);
    EXPECT_TRUE(authorize(*configurator));
    EXPECT_EQ(rules(), before);
}

TEST_F(FirewallRules, AreOneForEachDirection)
{
    EXPECT_TRUE(authorize(*FirewallConfigurator::createAdvancedConfigurator()));
    const auto text = rules();
    for (const auto* part : { "name=Lumen Hall\n", "description=Allow incoming network traffic to Lumen Hall\n",
             "profiles=2147483647\n", "action=1\n", "enabled=true\n" }) {
        const auto first = text.find(part);
        ASSERT_NE(first, text.npos) << text;
        EXPECT_NE(text.find(part, first + 1), text.npos) << text;
    }
    EXPECT_LT(text.find("direction=1"), text.find("direction=2"));
}

TEST_F(FirewallRules, CountForExactlyTheirPath)
{
    const auto configurator = FirewallConfigurator::createAdvancedConfigurator();
    ASSERT_TRUE(configurator->initialize(false));
    const auto authorized = [&](const std::string& rules) {
        record(rules);
        bool inbound = true;
        bool outbound = true;
        EXPECT_TRUE(configurator->isApplicationAuthorized(inbound, outbound, "/a/Server"));
        return std::pair(inbound, outbound);
    };
    EXPECT_EQ(authorized(""), std::pair(false, false));
    EXPECT_EQ(authorized(rule("/a/server", 1) + rule("/a/Server2", 2) + rule("", 1)), std::pair(false, false));
    EXPECT_EQ(authorized(rule("/a/Server", 1)), std::pair(true, false));
    EXPECT_EQ(authorized(rule("", 1) + rule("/a/Server", 2)), std::pair(false, true));
    EXPECT_EQ(authorized(rule("/a/Server", 2) + rule("/a/Server", 1)), std::pair(true, true));
}

TEST_F(FirewallRules, AreInForceIfTheyAreForAllCurrentNetworks)
{
    const auto older = FirewallConfigurator::createBaseConfigurator();
    const auto configurator = FirewallConfigurator::createAdvancedConfigurator();
    ASSERT_TRUE(older->initialize(false) && configurator->initialize(false));
    struct Case {
        int current;
        int on; // A bit for each kind of network.
        bool enabled;
    };
    for (const auto& [current, on, expected] : { Case { 2, 2, true }, Case { 2, 5, false }, Case { 7, 7, true },
             Case { 7, 6, false }, Case { 7, 3, false }, Case { 5, 5, true } }) {
        record(fmt::format("[Profiles]\ncurrent={}\ndomain={}\nprivate={}\npublic={}\n", current, (on & 1) != 0,
            (on & 2) != 0, (on & 4) != 0));
        for (const auto* each : { &older, &configurator }) {
            bool enabled = !expected;
            EXPECT_TRUE((*each)->isFirewallEnabled(enabled));
            EXPECT_EQ(enabled, expected) << current << " of " << on;
        }
    }
    EXPECT_TRUE(authorize(*configurator));
    EXPECT_THAT(rules(), testing::HasSubstr("current=5\n")) << "Kept by those who add.";
}

} // namespace
