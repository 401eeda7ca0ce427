// What can break here: a secret that stands readable in the file, a damaged or foreign entry that throws or takes the
// others with it, a change of another process that is not seen.
#include "core/password_manager/password_manager_generic.h"
#include "core/password_manager/windows_encryption.h"
#include "foundation/exceptions.h"
#include "platform/data_protection.h"
#include "platform/data_protection_folder.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include <gmock/gmock.h>

namespace {

using core::PasswordManagerGeneric;
using testing::ElementsAre;
using testing::StartsWith;

struct PasswordManager : testing::Test {
    /// The secret, or "not found".
    static std::string secret(core::PasswordManager& manager, std::string_view group, std::string_view key)
    {
        bool found = true;
        const auto text = manager.getPassword(group, key, found);
        EXPECT_EQ(manager.getPassword(group, key), text);
        return found ? text.toStdString() : text.empty() ? "not found" : "not found, but " + text.toStdString();
    }

    /// The document of the file, as anybody else reads it.
    fn::Value stored() const
    {
        core::Preferences preferences(path);
        preferences.reload();
        return preferences.root();
    }

    PasswordManagerGeneric makeManager() const
    {
        return { std::make_unique<core::WindowsEncryption>(), core::Preferences(path) };
    }

    test::TemporaryFolder folder;
    const fn::String path = folder.file("Test.prefs");
    platform::ScopedProtectionFolder protection { folder.file("key") };
    PasswordManagerGeneric manager = makeManager();
};

TEST_F(PasswordManager, GivesBackWhatWasStoredAndWritesNoneOfItReadably)
{
    const std::string long_(5000, 'x');
    const std::vector<std::array<std::string, 3>> entries = { { "mail", "a.b@c", "top secret" },
        { "mail.work", "k", "\xe2\x82\xac \"quoted\"\n" }, { "mail.work.old", "", long_ }, { "", "k", "no group" },
        { "mail..x", "k", std::string("\0zero", 5) }, { "mail", "empty", "" } };
    for (const auto& [group, key, password] : entries) manager.setPassword(group, key, password);
    manager.setPassword("mail", "a.b@c", "newer secret");

    auto other = makeManager(); // Knows only the file.
    EXPECT_EQ(secret(other, "mail", "a.b@c"), "newer secret");
    for (const auto& [group, key, password] : std::span(entries).subspan(1)) {
        EXPECT_EQ(secret(other, group, key), password) << group;
    }
    const auto text = test::readFile(path);
    for (const auto* readable : { "secret", "quoted", "xxxx", "no group" }) EXPECT_EQ(text.find(readable), text.npos);
    const auto document = stored();
    const auto& work = document.at("passwords").at("mail").at("work");
    EXPECT_GT(fn::ByteArray::fromBase64(work.at("k").string()).size(), 14u);
    EXPECT_EQ(work.at("old").at("").string().view().find("\r\n"), 72u);
}

TEST_F(PasswordManager, UnknownNamesAreNotFound)
{
    EXPECT_EQ(secret(manager, "g", "k"), "not found");
    EXPECT_FALSE(std::filesystem::exists(path.toStdString())); // Reading makes no file.
    manager.setPassword("g.h", "k", "x");
    for (const auto& [group, key] :
        { std::pair("g.h", "K"), { "g.h", "" }, { "h", "k" }, { "g.h.k", "k" }, { "", "" } }) {
        EXPECT_EQ(secret(manager, group, key), "not found") << group;
    }
}

TEST_F(PasswordManager, RemovingLeavesTheGroupAndAllElse)
{
    manager.removePassword("none", "none");
    EXPECT_EQ(test::readFile(path), ""); // Written in every case.
    manager.setPassword("g", "k", "1");
    manager.setPassword("g.h", "k", "2");
    manager.setPassword("other", "k", "3");
    manager.removePassword("g.h", "k");
    manager.removePassword("g.h", "k");
    manager.removePassword("other", "x");
    EXPECT_EQ(secret(manager, "g.h", "k"), "not found");
    EXPECT_EQ(stored().at("passwords").at("g").at("h"), fn::Value(fn::Value::MAP));
    EXPECT_EQ(secret(manager, "g", "k"), "1");
    EXPECT_EQ(secret(manager, "other", "k"), "3");
}

TEST_F(PasswordManager, SeesWhatAnotherProcessHasChanged)
{
    auto other = makeManager();
    manager.setPassword("g", "k", "old");
    EXPECT_EQ(secret(other, "g", "k"), "old");
    other.setPassword("g", "mine", "kept");
    manager.setPassword("g", "k", "new");
    EXPECT_EQ(secret(other, "g", "k"), "new");
    EXPECT_EQ(secret(manager, "g", "mine"), "kept");
    other.removePassword("g", "k");
    EXPECT_EQ(secret(manager, "g", "k"), "not found");
}

TEST_F(PasswordManager, ADamagedFileIsReplacedByReadingAloneFromWhatIsKnown)
{
    manager.setPassword("g", "k", "known");
    const std::string damaged = "\"passwords\": {";
    test::writeFile(path, damaged);
    EXPECT_THROW(manager.setPassword("g", "k", "x"), fn::DataFormatException);
    EXPECT_THROW(manager.removePassword("g", "k"), fn::DataFormatException);
    EXPECT_EQ(test::readFile(path), damaged);
    EXPECT_EQ(secret(manager, "g", "unknown"), "not found");
    EXPECT_EQ(secret(manager, "g", "k"), "known");
    auto other = makeManager();
    EXPECT_EQ(secret(other, "g", "k"), "known");

    test::writeFile(path, damaged);
    auto fresh = makeManager();
    EXPECT_EQ(secret(fresh, "g", "k"), "not found");
    EXPECT_EQ(test::readFile(path), "");
    fresh.setPassword("g", "k", "again");
    EXPECT_EQ(secret(manager, "g", "k"), "again");
}

TEST_F(PasswordManager, EntriesThatAreNoSecretsAreFoundEmptyWithALogLine)
{
    const std::string failed = "1 core.password Could not decrypt password";
    for (const auto* entry :
        { R"("!!")", R"("AAA")", R"({})", R"([1])", "\"\\u20ac\"", R"({"__type__": "buffer", "value": "AAAA"})" }) {
        test::writeFile(path, fmt::format(R"("passwords": {{"g": {{"k": {}}}}})", entry));
        const test::LogCapture log(1);
        bool found = false;
        EXPECT_EQ(manager.getPassword("g", "k", found), "");
        EXPECT_TRUE(found);
        EXPECT_THAT(log.lines(), ElementsAre(StartsWith(failed + ": "))) << entry;
    }
    for (const auto* entry : { R"("")", R"("AAAA")", "null", "1234" }) {
        test::writeFile(path, fmt::format(R"("passwords": {{"g": {{"k": {}}}}})", entry));
        const test::LogCapture log(1);
        EXPECT_EQ(manager.getPassword("g", "k"), "");
        EXPECT_THAT(log.lines(), ElementsAre(failed)) << entry;
    }
}

TEST_F(PasswordManager, WhatIsNoGroupIsNeitherReadNorReplaced)
{
    for (const auto* content : { R"("passwords": 5)", R"("passwords": {"g": "text"})", R"("passwords": [])" }) {
        test::writeFile(path, content);
        EXPECT_EQ(secret(manager, "g", "k"), "not found");
        EXPECT_THROW(manager.setPassword("g", "k", "x"), fn::RangeException);
        EXPECT_EQ(test::readFile(path), content);
        manager.removePassword("g", "k");
    }
    // A group of the name of a password would take its place.
    test::writeFile(path, "");
    manager.setPassword("g", "k", "kept");
    EXPECT_THROW(manager.setPassword("g.k", "x", "x"), fn::RangeException);
    EXPECT_EQ(secret(manager, "g", "k"), "kept");
}

TEST_F(PasswordManager, NoNameMakesTheFileUnreadable)
{
    manager.setPassword("g", "k", "kept");
    EXPECT_THROW(manager.setPassword("g", "__type__", "x"), fn::RangeException);
    EXPECT_THROW(manager.setPassword("__type__", "k", "x"), fn::RangeException);
    EXPECT_THROW(manager.setPassword("a.__type__.b", "k", "x"), fn::RangeException);
    std::string deep;
    for (int i = 0; i < 10'000; ++i) deep += "a.";
    EXPECT_THROW(manager.setPassword(deep, "k", "x"), fn::DataFormatException);
    manager.setPassword("g", "\"\\\r\n{\x01", "also kept");
    auto other = makeManager();
    EXPECT_EQ(secret(other, "g", "k"), "kept");
    EXPECT_EQ(secret(other, "g", "\"\\\r\n{\x01"), "also kept");
}

TEST_F(PasswordManager, ANameThatWouldNotComeBackAsItWasIsRefused)
{
    manager.setPassword("g", "k\xef\xbf\xbd", "kept");
    for (const auto* name : { "k\xff", "\xc3", "\xed\xa0\x80" }) {
        EXPECT_THROW(manager.setPassword("g", name, "x"), fn::RangeException) << name;
        EXPECT_THROW(manager.setPassword(fn::String("g.") + name, "k", "x"), fn::RangeException) << name;
        EXPECT_EQ(secret(manager, "g", name), "not found");
    }
    EXPECT_EQ(secret(manager, "g", "k\xef\xbf\xbd"), "kept");
    const std::string_view odd("a\0\xe2\x82\xac", 5);
    manager.setPassword(odd, odd, "also kept");
    EXPECT_EQ(secret(manager, odd, odd), "also kept");
}

TEST_F(PasswordManager, WhatCanNotBeProtectedIsRefusedAndWhatWasThereStays)
{
    manager.setPassword("g", "k", "secret");
    const auto before = test::readFile(path);
    const test::LogCapture log(1);
    const auto fails = [](const auto&, auto&) { return 0; };
    const auto throws = [](const auto&, auto&) -> int { throw fn::IOException("no luck"); };
    for (const bool isThrown : { false, true }) {
        const platform::ScopedDataProtection::Call call =
            isThrown ? platform::ScopedDataProtection::Call(throws) : fails;
        const platform::ScopedDataProtection failing(call, call);
        EXPECT_EQ(manager.getPassword("g", "k"), "");
        EXPECT_THROW(manager.setPassword("g", "k", "x"), fn::RuntimeException);
    }
    EXPECT_THAT(log.lines(),
        ElementsAre("1 core.password Could not decrypt password", "1 core.password Could not encrypt password",
            "1 core.password Could not decrypt password: no luck",
            "1 core.password Could not encrypt password: no luck"));
    PasswordManagerGeneric plain(std::make_unique<core::Encryption>(), core::Preferences(path));
    EXPECT_THROW(plain.setPassword("g", "k", "\xff"), fn::RuntimeException); // The file would hold another text.
    EXPECT_EQ(test::readFile(path), before);
    EXPECT_EQ(manager.getPassword("g", "k"), "secret");
}

} // namespace
