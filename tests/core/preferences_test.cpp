// What can break here: a file that does not read back, a byte lost where a chunk of text ends, a tagged value that comes
// back as a plain map, an old file lost to a write that failed, a document lost to a read that failed.
#include "base/exceptions.h"
#include "core/services/fraction.h"
#include "core/services/preferences.h"
#include "core/services/typed_byte_array.h"
#include "foundation/time/timestamp.h"
#include "support/expectations.h"
#include "support/temporary_folder.h"
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::function<int(int)> onSync; // What the disk does once instead.

} // namespace

/// Takes the place of the system's own, in the library, too.
extern "C" FN_EXPORT int fsync(int descriptor)
{
    const auto action = std::exchange(onSync, {});
    return action ? action(descriptor) : static_cast<int>(::syscall(SYS_fsync, descriptor));
}

namespace {

using core::Preferences;

class PreferencesTest : public testing::Test {
protected:
    test::TemporaryFolder folder;
    const fn::String path = folder.file("Test.prefs");
};

TEST_F(PreferencesTest, FileHoldsTheMembersWithoutBracesAndOneLevelShallower)
{
    Preferences preferences(path);
    preferences.root().set("old", 1);
    preferences.reload();
    EXPECT_EQ(preferences.root(), fn::Value(fn::Value::MAP)) << "A missing file is an empty one.";
    preferences.root().set("name", "a \"b\"\n");
    preferences.root().set("list", fn::Value::array({ 1, fn::Value::map({ { "ratio", core::Fraction(16, 9) } }) }));
    preferences.save();
    EXPECT_EQ(test::readFile(path),
        "\"list\": [\r\n\t1,\r\n\t{\r\n\t\t\"ratio\": {\r\n\t\t\t\"__type__\": \"fraction\",\r\n\t\t\t\"den\": 9,\r\n"
        "\t\t\t\"num\": 16\r\n\t\t}\r\n\t}\r\n],\r\n\"name\": \"a \\\"b\\\"\\n\"\r\n");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
    const auto mask = ::umask(0);
    ::umask(mask);
    EXPECT_EQ(std::filesystem::status(path.toStdString()).permissions(), std::filesystem::perms(0644 & ~mask));
}

TEST_F(PreferencesTest, EveryStorableValueComesBackAtAnyDepthAndSizeInItsNearestForm)
{
    const auto second = [](std::int64_t microseconds) { return fn::Value(fn::Timestamp(fn::Duration(microseconds))); };
    const fn::ByteArray bytes(std::string_view("\0\r\n\xff", 4));
    std::vector<std::pair<fn::Value, fn::Value>> values = {
        { second(1'500'000'000'999'999), second(1'500'000'000'000'000) },
        // Begins a second that no timestamp holds.
        { fn::Timestamp(INT64_MIN), fn::Timestamp(INT64_MIN / 1'000'000 * 1'000'000) },
        { core::TypedByteArray(fn::ByteArray("x"), ""), fn::ByteArray("x") },
    };
    for (const fn::Value& value :
        std::initializer_list<fn::Value> { core::Fraction(-16, 0), second(1'500'000'000'000'000),
            core::TypedByteArray(fn::ByteArray("\0\r\n\xff", 4), "image/png"), fn::Value(), true, INT64_MIN, UINT64_MAX,
            0.1, "", "\xe2\x82\xac", fn::Value(fn::Value::MAP), fn::Value(fn::Value::ARRAY) })
        values.emplace_back(value, value);
    // Several buffers of text, so that its chunks end at any place of a line; base64 has line ends of its own.
    for (unsigned size = 0; size < 700; ++size) values.emplace_back(fn::ByteArray(size), fn::ByteArray(size));
    Preferences preferences(path);
    fn::Value expected(fn::Value::MAP);
    for (const auto& [value, readBack] : values) {
        const auto name = fn::String::number(static_cast<std::uint64_t>(expected.size()));
        preferences.root().set(name, fn::Value::array({ value, fn::Value::map({ { "deep", value } }) }));
        expected.set(name, fn::Value::array({ readBack, fn::Value::map({ { "deep", readBack } }) }));
    }
    preferences.save();

    Preferences copy(path);
    copy.reload();
    EXPECT_EQ(copy.root(), expected);
}

TEST_F(PreferencesTest, BadFilesAreRefusedAndTheDocumentStays)
{
    const std::pair<const char*, const char*> rows[] = {
        { R"("a": {"__type__": "color"})", "DataFormatException: Unknown value type" },
        { R"("a": {"__type__": "timestamp", "value": 1})", "RangeException: Invalid boxed type" },
        { R"("a": {"__type__": "fraction", "num": 2147483648})", "RangeException: " },
        { R"("a": )", "DataFormatException: " }, { R"("a": 1}, {"b": 2)", "DataFormatException: " },
        { R"("__type__": "fraction")", "DataFormatException: " }, // The document itself is no fraction.
    };
    for (const auto& [content, expected] : rows) {
        test::writeFile(path, content);
        Preferences preferences(path);
        preferences.root().set("kept", true);
        try {
            preferences.reload();
            ADD_FAILURE() << content;
        } catch (const fn::Exception& e) {
            EXPECT_TRUE((e.className() + ": " + e.message()).startsWith(expected)) << content;
            EXPECT_EQ(*e.find<fn::PathInfo>(), path);
        }
        EXPECT_EQ(preferences.root(), fn::Value::map({ { "kept", true } }));
    }
}

TEST_F(PreferencesTest, AWriteThatFailsLeavesTheOldFile)
{
    test::writeFile(path, "\"old\": true\r\n");
    Preferences preferences(path);
    const auto tagged = fn::Value::map({ { "__type__", "fraction" } }); // It would come back as something else.
    preferences.root().set("value", std::nan(""));
    EXPECT_THROW(preferences.save(), fn::DataFormatException);
    preferences.root() = fn::Value::array({ 1, 2 });
    EXPECT_THROW(preferences.save(), fn::DataFormatException);
    preferences.root() = fn::Value::map({ { "a", fn::Value::array({ tagged }) } });
    EXPECT_THROW(preferences.save(), fn::RangeException);
    EXPECT_THROW(Preferences(folder.file("missing/Test.prefs")).save(), fn::FileException);
    preferences.root() = fn::Value::map({ { "a", 1 } });
    onSync = [](int) {
        errno = EIO;
        return -1;
    };
    EXPECT_THROW(preferences.save(), fn::FileException);
    EXPECT_EQ(test::readFile(path), "\"old\": true\r\n");

    const test::ExpectUnhandled expected; // What does not read back is reported and written again.
    onSync = [](int descriptor) { return ::ftruncate(descriptor, 2); };
    preferences.save();
    EXPECT_EQ(expected.messages().size(), 1U);
    EXPECT_EQ(test::readFile(path), "\"a\": 1\r\n");
}

} // namespace
