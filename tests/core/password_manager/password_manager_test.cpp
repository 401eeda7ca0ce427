// What can break here: a secret that stands readable in the file, a damaged or foreign entry that throws or takes the
// others with it, a change of another process that is not seen, a file that stays half written when a writer is killed.
#include "core/password_manager/password_manager_generic.h"
#include "core/password_manager/windows_encryption.h"
#include "foundation/exceptions.h"
#include "platform/data_protection.h"
#include "platform/data_protection_folder.h"
#include "support/forked_child.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include <chrono>
#include <gmock/gmock.h>
#include <random>
#include <unistd.h>

namespace {

using core::PasswordManagerGeneric;

struct PasswordManager : testing::Test {
    /// The secret, or "not found".
    static std::string secret(core::PasswordManager& manager, std::string_view group, std::string_view key)
    {
        bool found = true;
        const auto text = manager.getPassword(group, key, found);
        EXPECT_EQ(manager.getPassword(group, key), text);
        return found ? text.toStdString() : text.empty() ? "not found" : "not found, but " + text.toStdString();
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

TEST_F(PasswordManager, GivesBackWhatWasStoredAndWritesNoneOfItReadably)
{
    const std::string odd("a\0\xe2\x82\xac\"\\\r\n{\x01", 11);
    const std::vector<std::array<std::string, 3>> entries = { { "g", "a.b@c", "top secret" },
        { "g.work", "k", "\xe2\x82\xac \"quoted\"\n" }, { "g.work.old", "", std::string(5000, 'x') },
        { "", "k", "no group" }, { "g..x", "k", std::string("\0zero", 5) }, { "g", "empty", "" }, { odd, odd, odd } };
    for (const auto& [group, key, password] : entries) manager.setPassword(group, key, password + "older");
    for (const auto& [group, key, password] : entries) manager.setPassword(group, key, password);
    auto other = makeManager(); // Knows only the file.
    for (const auto& [group, key, password] : entries) EXPECT_EQ(secret(other, group, key), password) << group;
    other.setPassword("g", "mine", "kept");
    manager.setPassword("g", "k", "new");
    EXPECT_EQ(secret(other, "g", "k"), "new");
    EXPECT_EQ(secret(manager, "g", "mine"), "kept");
    const auto text = test::readFile(path);
    for (const auto* readable : { "secret", "quoted", "xxxx", "no group" }) EXPECT_EQ(text.find(readable), text.npos);
    EXPECT_EQ(group().at("work").at("old").at("").string().view().find("\r\n"), 72u);
}

TEST_F(PasswordManager, UnknownNamesAreNotFoundAndRemovingLeavesAllElse)
{
    EXPECT_EQ(secret(manager, "g", "k"), "not found");
    EXPECT_FALSE(std::filesystem::exists(path.toStdString())); // Reading makes no file.
    manager.removePassword("none", "none");
    EXPECT_EQ(test::readFile(path), ""); // Written in every case.
    manager.setPassword("g", "k", "1");
    manager.setPassword("g.h", "k", "2");
    for (const auto& [group, key] :
        { std::pair("g.h", "K"), { "g.h", "" }, { "h", "k" }, { "g.h.k", "k" }, { "", "" } }) {
        EXPECT_EQ(secret(manager, group, key), "not found") << group;
        manager.removePassword(group, key);
    }
    EXPECT_EQ(secret(manager, "g.h", "k"), "2");
    manager.removePassword("g.h", "k");
    EXPECT_EQ(secret(manager, "g.h", "k"), "not found");
    EXPECT_EQ(group().at("h"), fn::Value(fn::Value::MAP));
    EXPECT_EQ(secret(manager, "g", "k"), "1");
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

TEST_F(PasswordManager, WhatIsNoSecretAndNoGroupIsNeitherReadNorReplaced)
{
    for (const auto* entry : { R"("!!")", R"({})", R"([1])", "\"\\u20ac\"", R"("")", R"("AAAA")", "null", "1234",
             R"({"__type__": "buffer", "value": "AAAA"})" }) {
        test::writeFile(path, fmt::format(R"("passwords": {{"g": {{"k": {}}}}})", entry));
        const test::LogCapture log(1);
        EXPECT_EQ(secret(manager, "g", "k"), "") << entry;
        EXPECT_TRUE(log.contains("1 core.password Could not decrypt password")) << entry;
    }
    for (const auto* content : { R"("passwords": 5)", R"("passwords": {"g": "text"})", R"("passwords": [])" }) {
        test::writeFile(path, content);
        EXPECT_EQ(secret(manager, "g", "k"), "not found");
        EXPECT_THROW(manager.setPassword("g", "k", "x"), fn::RangeException);
        EXPECT_EQ(test::readFile(path), content);
        manager.removePassword("g", "k");
    }
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
    std::string deep;
    for (int i = 0; i < 10'000; ++i) deep += "a.";
    EXPECT_THROW(manager.setPassword(deep, "k", "x"), fn::DataFormatException);
    EXPECT_EQ(secret(manager, "g", "k\xef\xbf\xbd"), "kept");
}

TEST_F(PasswordManager, WhatCanNotBeProtectedIsRefusedAndWhatWasThereStays)
{
    manager.setPassword("g", "k", "secret");
    const auto before = test::readFile(path);
    const test::LogCapture log(1);
    const auto fails = [](const auto&, auto&) { return 0; };
    const auto throws = [](const auto&, auto&) -> int { throw fn::IOException("no luck"); };
    for (const platform::ScopedDataProtection::Call& call :
        { platform::ScopedDataProtection::Call(fails), platform::ScopedDataProtection::Call(throws) }) {
        const platform::ScopedDataProtection failing(call, call);
        EXPECT_EQ(manager.getPassword("g", "k"), "");
        EXPECT_THROW(manager.setPassword("g", "k", "x"), fn::RuntimeException);
    }
    const std::string decrypt = "1 core.password Could not decrypt password";
    const std::string encrypt = "1 core.password Could not encrypt password";
    EXPECT_THAT(log.lines(), testing::ElementsAre(decrypt, encrypt, decrypt + ": no luck", encrypt + ": no luck"));
    auto plain = makeManager<core::Encryption>();
    EXPECT_THROW(plain.setPassword("g", "k", "\xff"), fn::RuntimeException); // The file would hold another text.
    EXPECT_EQ(test::readFile(path), before);
    EXPECT_EQ(manager.getPassword("g", "k"), "secret");
}

std::string nameOf(int number) { return "key " + std::to_string(number); }
std::string secretOf(int number) { return "secret " + std::to_string(number); }

TEST_F(PasswordManager, AWriterKilledAtAnyMomentLosesNothingThatItHasReported)
{
    const std::string filler(10'000, 'x'); // Several writes a file.
    std::minstd_rand random(1);
    std::uniform_int_distribution<int> reports(1, 5), microseconds(0, 1000);
    makeManager<core::Encryption>().setPassword("g", "filler", filler);
    int next = 0;
    for (int round = 0; round < 50; ++round) {
        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        test::ForkedChild writer([&] {
            auto storing = makeManager<core::Encryption>();
            for (int number = next;; ++number) { // Until it is killed.
                storing.setPassword("g", nameOf(number), secretOf(number));
                if (::write(ends[1], &number, sizeof number) != sizeof number) return false;
            }
        });
        ::close(ends[1]);
        int reported = 0;
        for (int i = reports(random); i > 0; --i)
            ASSERT_EQ(::read(ends[0], &reported, sizeof reported), sizeof reported);
        // Not a wait for anything, but another moment each time.
        const auto moment = std::chrono::steady_clock::now() + std::chrono::microseconds(microseconds(random));
        while (std::chrono::steady_clock::now() < moment) ASSERT_NO_THROW(group()) << "while it is written";
        writer.kill();
        while (::read(ends[0], &reported, sizeof reported) == sizeof reported) { }
        ::close(ends[0]);

        fn::Value found;
        ASSERT_NO_THROW(found = group()) << "round " << round;
        ASSERT_EQ(found.get("filler"), fn::Value(filler));
        next = reported + 1;
        for (int i = 0; i < next; ++i) ASSERT_EQ(found.get(nameOf(i)), fn::Value(secretOf(i))) << "round " << round;
    }
}

} // namespace
