// What can break here: a rule that is lost, changed or readable to others on its way through the file; a damaged or foreign
// file that is believed, replaced, or ends the process; a change without an administrator's rights.
#include "platform/com/com.h"
#include "platform/com/elevation_prompt.h"
#include "platform/firewall/firewall_file.h"
#include "platform/firewall/firewall_policy.h"
#include "support/temporary_folder.h"
#include <cstring>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>

namespace {

namespace fs = std::filesystem;
using namespace platform;

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

    static Owned<INetFwRules> rules()
    {
        void* policy = nullptr;
        EXPECT_EQ(
            CoCreateInstance(CLSID_NetFwPolicy2, nullptr, CLSCTX_INPROC_SERVER, IID_INetFwPolicy2, &policy), S_OK);
        return got(*Owned<INetFwPolicy2>(static_cast<INetFwPolicy2*>(policy)), &INetFwPolicy2::get_Rules);
    }
    static Owned<INetFwRules> elevatedRules()
    {
        BIND_OPTS3 options {};
        options.cbStruct = bindOptions3Bytes;
        options.dwClassContext = CLSCTX_LOCAL_SERVER;
        void* policy = nullptr;
        const auto* const moniker = u"Elevation:Administrator!new:{E2B3C97F-6AE1-41AC-817A-F6F92166D7DD}";
        EXPECT_EQ(CoGetObject(moniker, &options, IID_INetFwPolicy2, &policy), S_OK);
        return got(*Owned<INetFwPolicy2>(static_cast<INetFwPolicy2*>(policy)), &INetFwPolicy2::get_Rules);
    }
    static Owned<INetFwRule> newRule(std::u16string_view application = u"/bin/a")
    {
        void* object = nullptr;
        EXPECT_EQ(CoCreateInstance(CLSID_NetFwRule, nullptr, CLSCTX_INPROC_SERVER, IID_INetFwRule, &object), S_OK);
        Owned<INetFwRule> rule(static_cast<INetFwRule*>(object));
        EXPECT_EQ(rule->put_ApplicationName(bstr(application).get()), S_OK);
        return rule;
    }
    static HRESULT add() { return elevatedRules()->Add(newRule().get()); }

    /// How many rules there are; -1 where the file cannot be read, which every call says then.
    static LONG count()
    {
        LONG result = -1;
        const auto read = rules()->get_Count(&result);
        IUnknown* enumeration = nullptr;
        EXPECT_EQ(rules()->get__NewEnum(&enumeration), read);
        if (enumeration) enumeration->Release();
        return FAILED(read) ? -1 : result;
    }

    /// The rules of an enumeration, taken `atOnce` at a time.
    static std::vector<Owned<INetFwRule>> list(ULONG atOnce)
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
        EXPECT_EQ(rule->put_Direction(NET_FW_RULE_DIR_IN), S_OK) << "It is still its maker's.";
    }
    EXPECT_EQ(fs::status(path.view()).permissions(), fs::perms(0600));
    EXPECT_EQ(count(), 4);
    for (const ULONG atOnce : { 1U, 3U, 4U, 10U }) {
        const auto all = list(atOnce);
        ASSERT_EQ(all.size(), std::size(texts));
        for (std::size_t i = 0; i < all.size(); ++i) {
            for (const auto getter :
                { &INetFwRule::get_ApplicationName, &INetFwRule::get_Name, &INetFwRule::get_Description })
                EXPECT_EQ(text(*all[i], getter), texts[i]);
            NET_FW_RULE_DIRECTION direction {};
            LONG protocol = 0, profiles = 0;
            EXPECT_EQ(all[i]->get_Direction(&direction), S_OK);
            EXPECT_EQ(all[i]->get_Protocol(&protocol), S_OK);
            EXPECT_EQ(all[i]->get_Profiles(&profiles), S_OK);
            EXPECT_EQ(direction, NET_FW_RULE_DIR_OUT);
            EXPECT_EQ(protocol, NET_FW_IP_PROTOCOL_UDP);
            EXPECT_EQ(profiles, NET_FW_PROFILE2_PUBLIC);
            EXPECT_EQ(all[i]->put_Enabled(VARIANT_FALSE), E_ACCESSDENIED) << "It shows what is recorded.";
        }
    }
}

TEST_F(Firewall, ChangesNothingWithoutRightsOrForNonsense)
{
    EXPECT_EQ(rules()->Add(newRule().get()), E_ACCESSDENIED);
    const auto rule = newRule();
    EXPECT_EQ(rule->put_Direction(static_cast<NET_FW_RULE_DIRECTION>(3)), E_INVALIDARG);
    EXPECT_EQ(rule->put_Action(static_cast<NET_FW_ACTION>(2)), E_INVALIDARG);
    EXPECT_EQ(rule->put_Protocol(257), E_INVALIDARG);
    EXPECT_EQ(rule->put_Profiles(8), E_INVALIDARG);
    EXPECT_EQ(rule->put_Name(bstr(std::u16string_view(u"a\0b", 3)).get()), E_INVALIDARG);
    EXPECT_EQ(elevatedRules()->Add(nullptr), E_POINTER);
    EXPECT_FALSE(fs::exists(path.view()));
}

TEST_F(Firewall, RefusesADamagedFileAndLeavesItAsItIs)
{
    const std::string good = "[Rule 1]\nname=a\ndescription=\napplicationName=/a\nprotocol=6\nprofiles=1\ndirection=1\n"
                             "action=1\nenabled=true\n";
    write(good);
    EXPECT_EQ(count(), 1);
    std::vector<std::string> bad { std::string("\0", 1), "x", "[Rule 1", "key=value\n", "[Unknown]\na=b\n",
        "[Rule 1]\nname=a\n", "[Application 1]\nimageFileName=/a\nname=a\nenabled=perhaps\n",
        "[Profiles]\ncurrent=8\ndomain=true\nprivate=true\npublic=true\n",
        "[Profiles]\ncurrent=99999999999999999999\ndomain=true\nprivate=true\npublic=true\n" };
    // One impossible value after the other.
    for (const auto& [was, is] : { std::pair("name=a", "name=\xFF"), { "protocol=6", "protocol=-1" },
             { "profiles=1", "profiles=0" }, { "direction=1", "direction=0" }, { "action=1", "action=2" } }) {
        bad.push_back(good);
        bad.back().replace(good.find(was), std::strlen(was), is);
    }
    for (const auto& content : bad) {
        write(content);
        EXPECT_EQ(count(), -1) << content;
        EXPECT_EQ(add(), HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT)) << content;
        EXPECT_EQ(test::readFile(path), content);
    }
}

TEST_F(Firewall, TrustsOnlyAFileOfItsUser)
{
    const std::pair<const char*, std::function<void()>> rows[] = {
        { "others may write", [&] { ::chmod(path.c_str(), 0620); } },
        { "others could put another one in its place", [&] { ::chmod((folder.path() / "made").c_str(), 0770); } },
        { "who follows links can be led",
            [&] {
                fs::rename(path.view(), folder.path() / "other");
                fs::create_symlink(folder.path() / "other", path.view());
            } },
        { "a folder",
            [&] {
                fs::remove(path.view());
                fs::create_directory(path.view());
            } },
        { "a pipe, and nobody waits for its writer",
            [&] {
                fs::remove(path.view());
                ::mkfifo(path.c_str(), 0600);
            } },
        { "too large", [&] { write("# " + std::string(4 * 1024 * 1024, 'x') + "\n"); } },
    };
    for (const auto& [what, makeBad] : rows) {
        fs::remove_all(folder.path() / "made");
        write("");
        EXPECT_EQ(count(), 0) << what;
        makeBad();
        EXPECT_EQ(count(), -1) << what;
        EXPECT_TRUE(FAILED(add())) << what;
    }
}

TEST_F(Firewall, AFailedChangeLeavesTheFormerRules)
{
    EXPECT_EQ(add(), S_OK);
    const auto before = test::readFile(path);
    const auto large = newRule(std::u16string(4 * 1024 * 1024, u'x'));
    EXPECT_TRUE(FAILED(elevatedRules()->Add(large.get()))) << "It could not be read again.";
    EXPECT_EQ(test::readFile(path), before);
    test::writeFile(path + ".new", "half of a fi"); // What an ended process has left is no obstacle.
    EXPECT_EQ(add(), S_OK);
    EXPECT_EQ(count(), 2);
    EXPECT_FALSE(fs::exists((path + ".new").view()));
    const ScopedFirewallFile impossible(path + "/firewall.rules");
    EXPECT_TRUE(FAILED(add())) << "Its folder can not be made.";
}

TEST_F(Firewall, LosesNoRuleWhereSeveralAddAtOnce)
{
    const auto addMany = [] {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        for (int i = 0; i < 20; ++i) EXPECT_EQ(add(), S_OK);
        CoUninitialize();
    };
    std::jthread first(addMany), second(addMany);
    first.join();
    second.join();
    EXPECT_EQ(count(), 40);
}

} // namespace
