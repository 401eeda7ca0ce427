// What can break here: a rule that is lost, changed or readable to others on its way through the file; a damaged or foreign
// file that is believed, replaced, or ends the process; a change without an administrator's rights.
#include "platform/com/com.h"
#include "platform/com/elevation_prompt.h"
#include "platform/firewall/firewall_file.h"
#include "platform/firewall/firewall_manager.h"
#include "platform/firewall/firewall_policy.h"
#include "support/temporary_folder.h"
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using namespace platform;
using testing::ElementsAre;

constexpr auto corrupt = HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT);

struct Release {
    template <typename T> void operator()(T* object) const { object->Release(); }
    void operator()(OLECHAR* text) const { SysFreeString(text); }
};
template <typename T> using Owned = std::unique_ptr<T, Release>;

/// What a getter hands out.
template <typename T, typename Base> Owned<T> got(Base& object, HRESULT (Base::*getter)(T**))
{
    T* result = nullptr;
    EXPECT_EQ((object.*getter)(&result), S_OK);
    return Owned<T>(result);
}

Owned<OLECHAR> bstr(std::u16string_view text)
{
    return Owned<OLECHAR>(SysAllocStringLen(text.data(), static_cast<UINT>(text.size())));
}

template <typename T> std::u16string text(T& object, HRESULT (T::*getter)(BSTR*))
{
    BSTR result = nullptr;
    EXPECT_EQ((object.*getter)(&result), S_OK);
    const Owned<OLECHAR> owned(result);
    return { result, SysStringLen(result) };
}

struct Firewall : testing::Test {
    Firewall() { EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK); }
    ~Firewall() override
    {
        EXPECT_EQ(DllCanUnloadNow(), S_OK) << "An object is left.";
        CoUninitialize();
    }

    test::TemporaryFolder folder;
    const fn::String path = folder.file("made/firewall.rules");
    ScopedFirewallFile file { path };
    ScopedElevationPrompt prompt { [](const fn::String&) { return true; } };

    template <typename T> static Owned<T> make(REFCLSID clsid, REFIID iid)
    {
        void* object = nullptr;
        EXPECT_EQ(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, iid, &object), S_OK);
        return Owned<T>(static_cast<T*>(object));
    }
    template <typename T> static Owned<T> makeElevated(REFCLSID clsid, REFIID iid)
    {
        std::u16string moniker = u"Elevation:Administrator!new:{00000000-0000-0000-0000-000000000000}";
        StringFromGUID2(clsid, moniker.data() + moniker.size() - 38, 39);
        BIND_OPTS3 options {};
        options.cbStruct = bindOptions3Bytes;
        options.dwClassContext = CLSCTX_LOCAL_SERVER;
        void* object = nullptr;
        EXPECT_EQ(CoGetObject(moniker.c_str(), &options, iid, &object), S_OK);
        return Owned<T>(static_cast<T*>(object));
    }
    static Owned<INetFwPolicy2> policy() { return make<INetFwPolicy2>(CLSID_NetFwPolicy2, IID_INetFwPolicy2); }
    static Owned<INetFwRules> rules() { return got(*policy(), &INetFwPolicy2::get_Rules); }
    static Owned<INetFwRules> elevatedRules()
    {
        return got(*makeElevated<INetFwPolicy2>(CLSID_NetFwPolicy2, IID_INetFwPolicy2), &INetFwPolicy2::get_Rules);
    }
    static Owned<INetFwRule> newRule(std::u16string_view application = u"/bin/a")
    {
        auto rule = make<INetFwRule>(CLSID_NetFwRule, IID_INetFwRule);
        EXPECT_EQ(rule->put_ApplicationName(bstr(application).get()), S_OK);
        return rule;
    }
    static Owned<INetFwProfile> profileOf(INetFwMgr& manager)
    {
        return got(*got(manager, &INetFwMgr::get_LocalPolicy), &INetFwPolicy::get_CurrentProfile);
    }
    static Owned<INetFwProfile> profile() { return profileOf(*make<INetFwMgr>(CLSID_NetFwMgr, IID_INetFwMgr)); }
    static Owned<INetFwProfile> elevatedProfile()
    {
        return profileOf(*makeElevated<INetFwMgr>(CLSID_NetFwMgr, IID_INetFwMgr));
    }
    static Owned<INetFwAuthorizedApplication> newApplication(std::u16string_view application, std::u16string_view name)
    {
        auto result =
            make<INetFwAuthorizedApplication>(CLSID_NetFwAuthorizedApplication, IID_INetFwAuthorizedApplication);
        EXPECT_EQ(result->put_ProcessImageFileName(bstr(application).get()), S_OK);
        EXPECT_EQ(result->put_Name(bstr(name).get()), S_OK);
        return result;
    }
    static LONG count()
    {
        LONG result = -1;
        EXPECT_EQ(rules()->get_Count(&result), S_OK);
        return result;
    }
    /// The rules of an enumeration, taken `atOnce` at a time.
    static std::vector<Owned<INetFwRule>> list(ULONG atOnce = 1)
    {
        const auto unknown = got(*rules(), &INetFwRules::get__NewEnum);
        void* enumeration = nullptr;
        EXPECT_EQ(unknown->QueryInterface(IID_IEnumVARIANT, &enumeration), S_OK);
        const Owned<IEnumVARIANT> owned(static_cast<IEnumVARIANT*>(enumeration));
        std::vector<Owned<INetFwRule>> result;
        std::vector<VARIANT> elements(atOnce);
        for (HRESULT more = S_OK; more == S_OK;) {
            ULONG fetched = 77;
            more = owned->Next(atOnce, elements.data(), &fetched);
            EXPECT_EQ(more == S_OK, fetched == atOnce);
            for (ULONG i = 0; i < fetched; ++i) {
                void* rule = nullptr;
                EXPECT_EQ(elements[i].pdispVal->QueryInterface(IID_INetFwRule, &rule), S_OK);
                result.emplace_back(static_cast<INetFwRule*>(rule));
                VariantClear(&elements[i]);
            }
        }
        return result;
    }
    /// Writes a file as its user would.
    void write(std::string_view content)
    {
        fs::create_directories(folder.path() / "made");
        fs::permissions(folder.path() / "made", fs::perms::owner_all); // Whatever the mask of who runs this.
        test::writeFile(path, content);
        ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
    }
};

TEST_F(Firewall, GivesBackEveryRuleAsItWasAdded)
{
    const std::u16string_view texts[] = { u"", u" [Rule 1] = x # ; \\n ", u"a\nb\r\tc\\", u"Zürich 𝄞/\u0001" };
    for (const auto& text : texts) {
        const auto rule = newRule(text);
        EXPECT_EQ(rule->put_Name(bstr(text).get()), S_OK);
        EXPECT_EQ(rule->put_Description(bstr(text).get()), S_OK);
        EXPECT_EQ(rule->put_Protocol(NET_FW_IP_PROTOCOL_UDP), S_OK);
        EXPECT_EQ(rule->put_Direction(NET_FW_RULE_DIR_OUT), S_OK);
        EXPECT_EQ(rule->put_Enabled(VARIANT_TRUE), S_OK);
        EXPECT_EQ(rule->put_Profiles(NET_FW_PROFILE2_PUBLIC), S_OK);
        EXPECT_EQ(rule->put_Action(NET_FW_ACTION_ALLOW), S_OK);
        EXPECT_EQ(elevatedRules()->Add(rule.get()), S_OK);
        // The one that was added is still its maker's, and can be added again.
        EXPECT_EQ(rule->put_Direction(NET_FW_RULE_DIR_IN), S_OK);
    }
    struct stat status;
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    EXPECT_EQ(count(), 4);
    for (const ULONG atOnce : { 1U, 3U, 4U, 10U }) {
        const auto all = list(atOnce);
        ASSERT_EQ(all.size(), std::size(texts));
        for (std::size_t i = 0; i < all.size(); ++i) {
            EXPECT_EQ(text(*all[i], &INetFwRule::get_ApplicationName), texts[i]);
            EXPECT_EQ(text(*all[i], &INetFwRule::get_Name), texts[i]);
            EXPECT_EQ(text(*all[i], &INetFwRule::get_Description), texts[i]);
            NET_FW_RULE_DIRECTION direction {};
            EXPECT_EQ(all[i]->get_Direction(&direction), S_OK);
            EXPECT_EQ(direction, NET_FW_RULE_DIR_OUT);
            LONG numbers[2] = {};
            EXPECT_EQ(all[i]->get_Protocol(&numbers[0]), S_OK);
            EXPECT_EQ(all[i]->get_Profiles(&numbers[1]), S_OK);
            EXPECT_THAT(numbers, ElementsAre(NET_FW_IP_PROTOCOL_UDP, NET_FW_PROFILE2_PUBLIC));
            EXPECT_EQ(all[i]->put_Enabled(VARIANT_FALSE), E_ACCESSDENIED) << "It shows what is recorded.";
        }
    }
}

TEST_F(Firewall, ChangesNothingWithoutRightsOrForNonsense)
{
    EXPECT_EQ(rules()->Add(newRule().get()), E_ACCESSDENIED);
    const auto applications = got(*profile(), &INetFwProfile::get_AuthorizedApplications);
    EXPECT_EQ(applications->Add(newApplication(u"/bin/a", u"a").get()), E_ACCESSDENIED);
    const auto rule = newRule();
    EXPECT_EQ(rule->put_Direction(static_cast<NET_FW_RULE_DIRECTION>(3)), E_INVALIDARG);
    EXPECT_EQ(rule->put_Action(static_cast<NET_FW_ACTION>(2)), E_INVALIDARG);
    EXPECT_EQ(rule->put_Protocol(257), E_INVALIDARG);
    EXPECT_EQ(rule->put_Profiles(8), E_INVALIDARG);
    EXPECT_EQ(rule->put_Name(bstr(std::u16string_view(u"a\0b", 3)).get()), E_INVALIDARG);
    EXPECT_EQ(elevatedRules()->Add(nullptr), E_POINTER);
    EXPECT_FALSE(std::filesystem::exists(path.toStdString()));
}

TEST_F(Firewall, RefusesADamagedFileAndLeavesItAsItIs)
{
    using namespace std::string_view_literals;
    const auto rule =
        "name=a\ndescription=\napplicationName=/a\nprotocol=6\nprofiles=1\ndirection=1\naction=1\nenabled=true\n"sv;
    for (const auto content :
        { "\0"sv, "x"sv, "[Rule 1"sv, "key=value\n"sv, "[Unknown]\na=b\n"sv, "[Rule 1]\nname=a\n"sv,
            "[Rule 1]\nname=\xFF\n"sv, "[Application 1]\nimageFileName=/a\nname=a\nenabled=perhaps\n"sv,
            "[Profiles]\ncurrent=8\ndomain=true\nprivate=true\npublic=true\n"sv,
            "[Profiles]\ncurrent=99999999999999999999\ndomain=true\nprivate=true\npublic=true\n"sv }) {
        write(content);
        LONG number = 0;
        VARIANT_BOOL flag = VARIANT_FALSE;
        IUnknown* enumeration = nullptr;
        INetFwAuthorizedApplication* found = nullptr;
        const auto applications = got(*elevatedProfile(), &INetFwProfile::get_AuthorizedApplications);
        const HRESULT results[] = { rules()->get_Count(&number), rules()->get__NewEnum(&enumeration),
            policy()->get_CurrentProfileTypes(&number), policy()->get_FirewallEnabled(NET_FW_PROFILE2_PUBLIC, &flag),
            profile()->get_FirewallEnabled(&flag), applications->Item(bstr(u"/a").get(), &found),
            elevatedRules()->Add(newRule().get()), applications->Add(newApplication(u"/a", u"a").get()) };
        EXPECT_THAT(results, testing::Each(corrupt)) << content;
        EXPECT_EQ(test::readFile(path), content);
    }
    // So that the above is not refused for another reason: the good one, and one impossible value after the other.
    for (const auto& [good, bad] :
        { std::pair("\n", "\n"), std::pair("protocol=6", "protocol=-1"), std::pair("profiles=1", "profiles=0"),
            std::pair("direction=1", "direction=0"), std::pair("action=1", "action=2") }) {
        auto content = "[Rule 1]\n" + std::string(rule);
        content.replace(content.find(good), std::strlen(good), bad);
        write(content);
        LONG number = 0;
        EXPECT_EQ(rules()->get_Count(&number), std::string_view(good) == bad ? S_OK : corrupt) << bad;
    }
}

TEST_F(Firewall, TrustsOnlyAFileOfItsUser)
{
    const auto result = [] {
        LONG number = 0;
        const HRESULT read = rules()->get_Count(&number);
        EXPECT_EQ(elevatedRules()->Add(newRule().get()), read);
        return read;
    };
    write("");
    ASSERT_EQ(::chmod(path.c_str(), 0620), 0);
    EXPECT_EQ(result(), E_ACCESSDENIED);
    ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
    ASSERT_EQ(::chmod((folder.path() / "made").c_str(), 0770), 0);
    EXPECT_EQ(result(), E_ACCESSDENIED) << "Others could put another one in its place.";
    ASSERT_EQ(::chmod((folder.path() / "made").c_str(), 0700), 0);
    EXPECT_EQ(result(), S_OK);
    fs::rename(path.toStdString(), folder.path() / "other");
    fs::create_symlink(folder.path() / "other", path.toStdString());
    EXPECT_TRUE(FAILED(result())) << "Who follows links can be led.";
    fs::remove(path.toStdString());
    fs::create_directory(path.toStdString());
    EXPECT_TRUE(FAILED(result()));
    fs::remove(path.toStdString());
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    EXPECT_TRUE(FAILED(result())) << "And nobody waits for its writer.";
    fs::remove(path.toStdString());
    write("# " + std::string(4 * 1024 * 1024, 'x') + "\n");
    EXPECT_TRUE(FAILED(result())) << "Too large.";
}

TEST_F(Firewall, AFailedChangeLeavesTheFormerRules)
{
    EXPECT_EQ(elevatedRules()->Add(newRule().get()), S_OK);
    const auto before = test::readFile(path);
    const auto large = newRule(std::u16string(4 * 1024 * 1024, u'x'));
    EXPECT_TRUE(FAILED(elevatedRules()->Add(large.get()))) << "It could not be read again.";
    EXPECT_EQ(test::readFile(path), before);
    // What an ended process has left is no obstacle.
    test::writeFile(path + ".new", "half of a fi");
    EXPECT_EQ(elevatedRules()->Add(newRule().get()), S_OK);
    EXPECT_EQ(count(), 2);
    EXPECT_FALSE(std::filesystem::exists((path + ".new").toStdString()));
    // The folder of the file can not be made.
    const ScopedFirewallFile impossible(path + "/firewall.rules");
    EXPECT_TRUE(FAILED(elevatedRules()->Add(newRule().get())));
}

TEST_F(Firewall, LosesNoRuleWhereSeveralAddAtOnce)
{
    constexpr int each = 20;
    const auto add = [] {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        {
            const auto rules = elevatedRules();
            for (int i = 0; i < each; ++i) EXPECT_EQ(rules->Add(newRule().get()), S_OK);
        }
        CoUninitialize();
    };
    std::thread first(add);
    std::thread second(add);
    first.join();
    second.join();
    EXPECT_EQ(count(), 2 * each);
}

} // namespace
