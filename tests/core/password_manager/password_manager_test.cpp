// What can break here: a secret that stands readable in the file, a damaged or foreign entry that throws or takes the
// others with it, a change of another process that is not seen.
#include "base/exceptions.h"
#include "core/services/password_manager/password_manager_generic.h"
#include "core/services/password_manager/windows_encryption.h"
#include "platform/data_protection.h"
#include "platform/data_protection_folder.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include <gtest/gtest.h>

namespace {

using core::PasswordManagerGeneric;

struct PasswordManager : testing::Test {
    /// The secret, or "not found".
    static std::string secret(core::PasswordManager& manager, std::string_view group, std::string_view key)
    {
        bool found = true;
        const auto text = manager.getPassword(group, key, found);
        EXPECT_EQ(manager.getPassword(group, key), text);
        EXPECT_TRUE(found || text.empty());
        return found ? text.toStdString() : "not found";
    }

    /// The group "g" as anybody else reads it: the manager's own reading would repair what it can not parse.
    fn::Value group() const
    {
        core::Preferences preferences(path);
        preferences.reload();
        const auto* const group = preferences.root().valueForPathIfExists("passwords.g");
        return group ? *group : fn::Value(fn::Value::MAP);
    }

    template <typename Encryption = core::WindowsEncryption> PasswordManagerGeneric makeManager() const
    {
        return { std::make_unique<Encryption>(), core::Preferences(path) };
    }

    test::TemporaryFolder folder;
    const fn::String path = folder.file("Test.prefs");
    platform::ScopedProtectionFolder protection { folder.file("key") };
    PasswordManagerGeneric manager = makeManager();
};

TEST_F(PasswordManager, GivesBackWhatWasStoredUntilItIsRemovedAndWritesNoneOfItReadably)
{
    EXPECT_EQ(secret(manager, "g", "k"), "not found");
    const std::string odd("a\0\xe2\x82\xac\"\\\r\n{\x01", 11);
    const std::vector<std::array<std::string, 3>> entries = { { "g", "a.b@c", "top secret" },
        { "g.work", "k", "\xe2\x82\xac \"quoted\"\n" }, { "g.work.old", "", std::string(5000, 'x') },
        { "", "k", "no group" }, { "g..x", "k", std::string("\0zero", 5) }, { "g", "empty", "" }, { odd, odd, odd } };
    for (const auto& [group, key, password] : entries) manager.setPassword(group, key, password + "older");
    for (const auto& [group, key, password] : entries) manager.setPassword(group, key, password);
    const auto text = test::readFile(path);
    for (const auto* readable : { "secret", "quoted", "xxxx", "no group" }) EXPECT_EQ(text.find(readable), text.npos);
    EXPECT_EQ(group().at("work").at("old").at("").string().view().find("\r\n"), 72u);

    auto other = makeManager(); // Knows only the file.
    for (std::size_t removed = 0; removed <= entries.size(); ++removed) {
        for (std::size_t i = 0; i < entries.size(); ++i) {
            const auto& [group, key, password] = entries[i];
            EXPECT_EQ(secret(other, group, key), i < removed ? "not found" : password) << group;
        }
        if (removed < entries.size()) manager.removePassword(entries[removed][0], entries[removed][1]);
    }
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
}

TEST_F(PasswordManager, ANameThatWouldNotComeBackAsItWasIsRefused)
{
    manager.setPassword("g", "k\xef\xbf\xbd", "kept");
    for (const fn::String name : { "k\xff", "\xc3", "\xed\xa0\x80", "__type__" }) {
        EXPECT_THROW(manager.setPassword("g", name, "x"), fn::RangeException) << name;
        EXPECT_THROW(manager.setPassword(fn::String("g.") + name, "k", "x"), fn::RangeException) << name;
        EXPECT_EQ(secret(manager, "g", name), "not found");
    }
    // A group of the name of a password would take its place.
    EXPECT_THROW(manager.setPassword("g.k\xef\xbf\xbd", "x", "x"), fn::RangeException);
    EXPECT_EQ(secret(manager, "g", "k\xef\xbf\xbd"), "kept");
}

TEST_F(PasswordManager, WhatCanNotBeProtectedIsRefusedAndWhatWasThereStays)
{
    manager.setPassword("g", "k", "secret");
    const auto before = test::readFile(path);
    const test::LogCapture log(1);
    for (const bool throws : { false, true }) {
        const auto call = [&](const auto&, auto&) { return throws ? throw fn::IOException("no luck") : 0; };
        const platform::ScopedDataProtection failing(call);
        EXPECT_EQ(manager.getPassword("g", "k"), "");
        EXPECT_THROW(manager.setPassword("g", "k", "x"), fn::RuntimeException);
    }
    EXPECT_EQ(log.lines().size(), 4U);
    EXPECT_TRUE(log.contains("Could not decrypt password: no luck"));
    EXPECT_EQ(test::readFile(path), before);
    EXPECT_EQ(manager.getPassword("g", "k"), "secret");
}

} // namespace
