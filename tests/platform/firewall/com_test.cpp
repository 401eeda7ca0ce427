// What can break here: text that is cut, misread or written beyond its room; rights without asking.
#include "platform/com/com.h"
#include "platform/com/com_backend.h"
#include "platform/com/elevation_prompt.h"
#include <gmock/gmock.h>

namespace {

using namespace platform;

TEST(Utf16, HasEveryCharacterOnceAndMarksWhatIsNoneAndStaysWithinItsRoom)
{
    const std::pair<std::string, std::u16string> rows[] = { { "aü€𝄞", u"aü€𝄞" }, { "\xC3", u"\uFFFD" },
        { "\xC3x", u"\uFFFDx" }, { "\xC0\x80", u"\uFFFD\uFFFD" }, // Longer than it need be.
        { "\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD" }, // Half of a pair.
        { "\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD" } }; // Beyond the last one.
    for (const auto& [bytes, expected] : rows) {
        const auto size = static_cast<int>(bytes.size()), needed = static_cast<int>(expected.size());
        EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, bytes.c_str(), -1, nullptr, 0), needed + 1)
            << "With the 0 at the end.";
        std::u16string units(expected.size() + 1, u'#');
        const int tooFew = needed - 1; // None only asks how many are needed.
        EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, bytes.data(), size, units.data(), tooFew), tooFew ? 0 : needed);
        EXPECT_EQ(units.substr(expected.size() - 1), u"##") << "Half a pair is not written either.";
        EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, bytes.data(), size, units.data(), needed), needed);
        EXPECT_EQ(units, expected + u'#');
    }
}

struct Com : testing::Test {
    Com() { EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK); }
    ~Com() override
    {
        EXPECT_EQ(DllCanUnloadNow(), S_OK) << "An object is left.";
        CoUninitialize();
    }

    static HRESULT elevate()
    {
        const auto* const moniker = u"Elevation:Administrator!new:{304CE942-6E39-40D8-943A-B913C40C9CD4}";
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

TEST_F(Com, AsksForElevationAndTakesNoForAnAnswer)
{
    const char* const action = "change which programs the firewall admits";
    testing::internal::CaptureStderr();
    EXPECT_EQ(elevate(), HRESULT_FROM_WIN32(ERROR_CANCELLED)) << "Nobody to ask.";
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr(action));
    for (const bool answer : { false, true }) {
        const ScopedElevationPrompt prompt([&](const fn::String& what) { return what == action && answer; });
        EXPECT_EQ(elevate(), answer ? S_OK : HRESULT_FROM_WIN32(ERROR_CANCELLED));
    }
    const ScopedElevationPrompt broken([](const fn::String&) -> bool { throw std::runtime_error("no terminal"); });
    EXPECT_EQ(elevate(), E_UNEXPECTED);
}

} // namespace
