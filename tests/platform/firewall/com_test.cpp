// What can break here: text that is cut, misread or written beyond its room; an object made without COM or without rights; a
// rule that is not the one that was added.
#include "platform/com/com.h"
#include "platform/com/com_backend.h"
#include "platform/com/elevation_prompt.h"
#include "platform/firewall/detail/records_file.h"
#include "platform/firewall/firewall_file.h"
#include "platform/firewall/firewall_policy.h"
#include "support/temporary_folder.h"
#include <gmock/gmock.h>
#include <thread>

namespace {

using namespace platform;

std::u16string utf16(std::string_view text)
{
    std::u16string result(text.size() + 1, u'?');
    const auto units = MultiByteToWideChar(
        CP_UTF8, 0, text.data(), static_cast<int>(text.size()), result.data(), static_cast<int>(result.size()));
    result.resize(static_cast<std::size_t>(units));
    return result;
}

TEST(Utf16, HasEveryCharacterOnceAndMarksWhatIsNone)
{
    using namespace std::string_view_literals;
    const std::pair<std::string_view, std::u16string_view> rows[] = {
        { "a\0ü€𝄞"sv, u"a\0ü€𝄞"sv }, { "\xC3", u"\uFFFD" }, // Ends within a character.
        { "\xC3x", u"\uFFFDx" }, { "\xC0\x80", u"\uFFFD\uFFFD" }, // Longer than it need be.
        { "\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD" }, // Half of a pair.
        { "\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD" }, // Beyond the last one.
    };
    for (const auto& [bytes, expected] : rows) EXPECT_EQ(utf16(bytes), expected);
    EXPECT_EQ(SysAllocString(nullptr), nullptr);
}

TEST(Utf16, StaysWithinTheRoomItIsGiven)
{
    const char* const text = "ab𝄞";
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, text, 6, nullptr, 0), 4);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, text, -1, nullptr, 0), 5) << "With the 0 at the end.";
    for (int room = 1; room < 5; ++room) {
        OLECHAR output[5] = { u'#', u'#', u'#', u'#', u'#' };
        EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, text, 6, output, room), room == 4 ? 4 : 0);
        EXPECT_EQ(output[room], u'#');
        EXPECT_EQ(output[3] == u'#', room < 4) << "Half a pair is not written either.";
    }
}

struct Com : testing::Test {
    Com() { EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK); }
    ~Com() override
    {
        EXPECT_EQ(DllCanUnloadNow(), S_OK) << "An object is left.";
        CoUninitialize();
    }

    static HRESULT elevate(
        const OLECHAR* moniker = u"Elevation:Administrator!new:{304CE942-6E39-40D8-943A-B913C40C9CD4}")
    {
        BIND_OPTS3 options {};
        options.cbStruct = bindOptions3Bytes;
        options.dwClassContext = CLSCTX_LOCAL_SERVER;
        void* object = &options;
        const auto result = CoGetObject(moniker, &options, IID_IUnknown, &object);
        EXPECT_EQ(SUCCEEDED(result), object != nullptr);
        if (object) static_cast<IUnknown*>(object)->Release();
        return result;
    }
};

TEST_F(Com, HasOneModeOnEachThreadForAsLongAsItIsUsed)
{
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_FALSE);
    CoUninitialize();
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), RPC_E_CHANGED_MODE) << "The first use goes on.";
    std::jthread([] {
        void* object = nullptr;
        EXPECT_EQ(CoCreateInstance(CLSID_NetFwRule, nullptr, CLSCTX_INPROC_SERVER, IID_INetFwRule, &object),
            CO_E_NOTINITIALIZED);
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        CoUninitialize();
        CoUninitialize(); // Once too often takes nothing from anybody.
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
        CoUninitialize();
    }).join();
}

TEST_F(Com, AsksForElevationAndTakesNoForAnAnswer)
{
    const auto refused = HRESULT_FROM_WIN32(ERROR_CANCELLED);
    const char* const action = "change which programs the firewall admits";
    testing::internal::CaptureStderr();
    EXPECT_EQ(elevate(), refused) << "Nobody to ask.";
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr(action));

    bool answer = false;
    std::vector<fn::String> asked;
    const ScopedElevationPrompt prompt([&](const fn::String& what) {
        asked.push_back(what);
        return answer;
    });
    EXPECT_EQ(elevate(), refused);
    answer = true;
    EXPECT_EQ(elevate(), S_OK);
    EXPECT_EQ(elevate(u"Elevation:Administrator!new:{e2b3c97f-6ae1-41ac-817a-f6f92166d7dd}"), S_OK);
    EXPECT_EQ(asked, std::vector<fn::String>(3, action));
    const ScopedElevationPrompt broken([](const fn::String&) -> bool { throw std::runtime_error("no terminal"); });
    EXPECT_EQ(elevate(), E_UNEXPECTED);
}

template <typename T> T& made(REFCLSID clsid, REFIID iid)
{
    void* object = nullptr;
    EXPECT_EQ(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, iid, &object), S_OK);
    return *static_cast<T*>(object);
}

TEST_F(Com, RulesTakeNoNonsenseAndAreNotChangedWithoutRights)
{
    auto& rule = made<INetFwRule>(CLSID_NetFwRule, IID_INetFwRule);
    EXPECT_EQ(rule.put_Direction(static_cast<NET_FW_RULE_DIRECTION>(3)), E_INVALIDARG);
    EXPECT_EQ(rule.put_Action(static_cast<NET_FW_ACTION>(2)), E_INVALIDARG);
    EXPECT_EQ(rule.put_Protocol(257), E_INVALIDARG);
    EXPECT_EQ(rule.put_Profiles(8), E_INVALIDARG);
    BSTR cut = SysAllocStringLen(u"a\0b", 3);
    EXPECT_EQ(rule.put_Name(cut), E_INVALIDARG);
    SysFreeString(cut);
    auto& policy = made<INetFwPolicy2>(CLSID_NetFwPolicy2, IID_INetFwPolicy2);
    INetFwRules* rules = nullptr;
    EXPECT_EQ(policy.get_Rules(&rules), S_OK);
    EXPECT_EQ(rules->Add(nullptr), E_POINTER);
    EXPECT_EQ(rules->Add(&rule), E_ACCESSDENIED);
    for (IUnknown* object : std::initializer_list<IUnknown*> { rules, &policy, &rule }) object->Release();
}

TEST_F(Com, AnEnumerationGivesEachRuleOnceHoweverManyAreTakenAtOnceAndNoneCanBeChanged)
{
    const test::TemporaryFolder folder;
    const ScopedFirewallFile file(folder.file("made/firewall.rules"));
    detail::updateRecords([](detail::FirewallRecords& records) {
        for (LONG protocol = 0; protocol < 4; ++protocol) records.rules.emplace_back().protocol = protocol;
    });
    auto& policy = made<INetFwPolicy2>(CLSID_NetFwPolicy2, IID_INetFwPolicy2);
    INetFwRules* rules = nullptr;
    EXPECT_EQ(policy.get_Rules(&rules), S_OK);
    for (const ULONG atOnce : { 1U, 3U, 4U, 10U }) {
        IUnknown* enumeration = nullptr;
        EXPECT_EQ(rules->get__NewEnum(&enumeration), S_OK);
        LONG next = 0;
        VARIANT elements[10];
        for (ULONG fetched = atOnce; fetched == atOnce;) {
            const auto result = static_cast<IEnumVARIANT*>(enumeration)->Next(atOnce, elements, &fetched);
            EXPECT_EQ(result == S_OK, fetched == atOnce);
            for (ULONG i = 0; i < fetched; ++i) {
                LONG protocol = -1;
                auto* const rule = static_cast<INetFwRule*>(elements[i].pdispVal);
                EXPECT_EQ(rule->get_Protocol(&protocol), S_OK);
                EXPECT_EQ(protocol, next++);
                EXPECT_EQ(rule->put_Enabled(VARIANT_FALSE), E_ACCESSDENIED) << "It shows what is recorded.";
                VariantClear(&elements[i]);
            }
        }
        EXPECT_EQ(next, 4) << atOnce;
        enumeration->Release();
    }
    for (IUnknown* object : std::initializer_list<IUnknown*> { rules, &policy }) object->Release();
}

} // namespace
