// What can break here: a file that does not read back, a byte lost where a chunk of text ends, a tagged value that comes
// back as a plain map, an old file lost to a write that failed, a document lost to a read that failed.
#include "core/fraction.h"
#include "core/preferences.h"
#include "core/typed_byte_array.h"
#include "foundation/exceptions.h"
#include "foundation/time/timestamp.h"
#include "support/expectations.h"
#include "support/forked_child.h"
#include "support/temporary_folder.h"
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>

namespace {

using core::Preferences;

class PreferencesTest : public testing::Test {
protected:
    fn::Value load(std::string_view content)
    {
        test::writeFile(path, content);
        Preferences preferences(path);
        preferences.reload();
        return preferences.root();
    }

    /// Class, message and detail of what reading `content` throws.
    std::string refusal(std::string_view content)
    {
        test::writeFile(path, content);
        Preferences preferences(path);
        preferences.root().set("kept", true);
        try {
            preferences.reload();
        } catch (const fn::Exception& e) {
            EXPECT_EQ(preferences.root(), fn::Value::map({ { "kept", true } }));
            EXPECT_EQ(*e.find<fn::PathInfo>(), path);
            const auto* detail = e.find<fn::DetailInfo>();
            return (e.className() + ": " + e.message() + (detail ? ", " + *detail : fn::String())).toStdString();
        }
        return "nothing thrown";
    }

    std::size_t filesInFolder() const
    {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder.path()), {}));
    }

    test::TemporaryFolder folder;
    const fn::String path = folder.file("Test.prefs");
};

TEST_F(PreferencesTest, FileHoldsTheMembersWithoutBracesAndOneLevelShallower)
{
    Preferences preferences(path);
    preferences.root().set("name", "a \"b\"\n");
    preferences.root().set("list", fn::Value::array({ 1, fn::Value::map({ { "ratio", core::Fraction(16, 9) } }) }));
    preferences.save();
    EXPECT_EQ(test::readFile(path),
        "\"list\": [\r\n"
        "\t1,\r\n"
        "\t{\r\n"
        "\t\t\"ratio\": {\r\n"
        "\t\t\t\"__type__\": \"fraction\",\r\n"
        "\t\t\t\"den\": 9,\r\n"
        "\t\t\t\"num\": 16\r\n"
        "\t\t}\r\n"
        "\t}\r\n"
        "],\r\n"
        "\"name\": \"a \\\"b\\\"\\n\"\r\n");
    EXPECT_EQ(filesInFolder(), 1u);
    struct stat status;
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    const auto mask = ::umask(0);
    ::umask(mask);
    EXPECT_EQ(status.st_mode & 0777, 0644 & ~mask);
}

TEST_F(PreferencesTest, EveryStorableValueComesBackAtAnyDepthAndSize)
{
    Preferences preferences(path);
    auto& root = preferences.root();
    const fn::ByteArray bytes(std::string_view("\0\r\n\xff", 4));
    root.set("fraction", core::Fraction(-16, 0));
    root.set("timestamp", fn::Timestamp(fn::Duration(1'500'000'000'000'000)));
    root.set("bytes", bytes);
    root.set("no bytes", fn::ByteArray());
    root.set("typed", core::TypedByteArray(bytes, "image/png"));
    root.set("scalars", fn::Value::array({ fn::Value(), true, INT64_MIN, UINT64_MAX, 0.1, "", "\xe2\x82\xac" }));
    root.set("empty", fn::Value::array({ fn::Value(fn::Value::MAP), fn::Value(fn::Value::ARRAY) }));
    // Several buffers of text, so that its chunks end at any place of a line; base64 has line ends of its own.
    for (int i = 0; i < 1000; ++i) root.set("filler" + fn::String::number(i), fn::ByteArray(static_cast<unsigned>(i)));
    preferences.save();

    Preferences copy(path);
    copy.reload();
    EXPECT_EQ(copy.root(), root);
    EXPECT_EQ(copy.root().at("fraction").boxed<core::Fraction>().toString(), "-16/0");
    const auto text = test::readFile(path);
    copy.save();
    EXPECT_EQ(test::readFile(path), text);
}

TEST_F(PreferencesTest, WhatTheFileCanNotTellApartComesBackAsItsNearestForm)
{
    Preferences preferences(path);
    preferences.root().set("timestamp", fn::Timestamp(fn::Duration(1'500'000'000'999'999)));
    preferences.root().set("earliest", fn::Timestamp(INT64_MIN)); // Begins a second that no timestamp holds.
    preferences.root().set("typed", core::TypedByteArray(fn::ByteArray("x"), ""));
    preferences.save();
    EXPECT_NE(test::readFile(path).find("\"mimeType\": \"\""), std::string::npos);
    preferences.reload();
    EXPECT_EQ(preferences.root().at("timestamp"), fn::Value(fn::Timestamp(fn::Duration(1'500'000'000'000'000))));
    EXPECT_EQ(preferences.root().at("earliest"), fn::Value(fn::Timestamp(INT64_MIN / 1'000'000 * 1'000'000)));
    EXPECT_EQ(preferences.root().at("typed"), fn::Value(fn::ByteArray("x")));

    EXPECT_EQ(load(R"("f": {"__type__": "fraction"})").at("f").boxed<core::Fraction>().toString(), "0/0");
    EXPECT_EQ(load(R"("t": {"__type__": "timestamp", "value": "Thu, 01 Jan 1970 02:00:00 +0130"})").at("t"),
        fn::Value(fn::Timestamp(fn::Duration::seconds(1800))));
}

TEST_F(PreferencesTest, MissingAndEmptyFilesReadAsAnEmptyMap)
{
    Preferences preferences(path);
    preferences.root().set("old", 1);
    preferences.reload();
    EXPECT_EQ(preferences.root(), fn::Value(fn::Value::MAP));
    EXPECT_EQ(load(""), fn::Value(fn::Value::MAP));
    EXPECT_EQ(load("\r\n"), fn::Value(fn::Value::MAP));
    preferences.save();
    EXPECT_EQ(test::readFile(path), "");
}

TEST_F(PreferencesTest, BadFilesAreRefusedAndTheDocumentStays)
{
    EXPECT_EQ(refusal(R"("a": {"__type__": "color"})"), "DataFormatException: Unknown value type, Type: color");
    const std::string invalidType = "RangeException: Invalid boxed type";
    for (const auto* content : {
             R"("a": {"__type__": 1})",
             R"("a": [{"__type__": {}}])",
             R"("a": {"__type__": "timestamp", "value": 1})",
             R"("a": {"__type__": "buffer"})",
             R"("a": {"__type__": "buffer", "value": 1})",
             R"("a": {"__type__": "buffer", "value": "", "mimeType": 1})",
         }) {
        EXPECT_TRUE(refusal(content).starts_with(invalidType)) << content;
    }
    EXPECT_TRUE(refusal(R"("a": {"__type__": "fraction", "num": 2147483648})").starts_with("RangeException"));
    for (const auto* content : {
             R"("a": )", R"("a": 1}, {"b": 2)", R"("a": {"__type__": "buffer", "value": "=?"})",
             R"("a": {"__type__": "timestamp"})",
             R"("__type__": "fraction")", // The document itself is no fraction.
         }) {
        EXPECT_TRUE(refusal(content).starts_with("DataFormatException")) << content;
    }
    EXPECT_TRUE(refusal("\"a\": " + std::string(100'000, '[')).starts_with("DataFormatException"));
}

TEST_F(PreferencesTest, AWriteThatFailsLeavesTheOldFile)
{
    test::writeFile(path, "\"old\": true\r\n");
    Preferences preferences(path);
    preferences.root().set("value", std::nan(""));
    EXPECT_THROW(preferences.save(), fn::DataFormatException);
    preferences.root() = fn::Value::array({ 1, 2 });
    EXPECT_THROW(preferences.save(), fn::DataFormatException);
    preferences.root() =
        fn::Value::map({ { "a", fn::Value::array({ fn::Value::map({ { "__type__", "fraction" } }) }) } });
    EXPECT_THROW(preferences.save(), fn::RangeException); // It would come back as something else.
    EXPECT_EQ(test::readFile(path), "\"old\": true\r\n");

    Preferences unreachable(folder.file("missing/Test.prefs"));
    EXPECT_THROW(unreachable.save(), fn::FileException);
}

/// From now on the kernel answers this system call of this process as a broken disk does.
bool breakDisk(unsigned call)
{
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EIO),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program { std::size(code), code };
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

TEST_F(PreferencesTest, WhatDoesNotReachTheDiskDoesNotReplaceTheOldFile)
{
    test::writeFile(path, "\"old\": true\r\n");
    test::ForkedChild child([&] {
        if (!breakDisk(SYS_fsync)) return false;
        try {
            Preferences(path).save();
        } catch (const fn::FileException& exception) {
            return *exception.find<fn::ErrnoInfo>() == EIO;
        }
        return false;
    });
    EXPECT_TRUE(child.succeeds());
    EXPECT_EQ(test::readFile(path), "\"old\": true\r\n");
}

TEST_F(PreferencesTest, AFileThatDoesNotReadBackIsReportedAndWrittenAgain)
{
    Preferences preferences(path);
    preferences.root().set("a", 1);
    test::ForkedChild child([&] {
        const test::ExpectUnhandled expected;
        if (!breakDisk(SYS_read)) return false;
        preferences.save();
        return expected.messages().size() == 1;
    });
    EXPECT_TRUE(child.succeeds());
    EXPECT_EQ(test::readFile(path), "\"a\": 1\r\n");
}

} // namespace
