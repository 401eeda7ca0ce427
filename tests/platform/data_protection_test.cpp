// What can break here: changed or foreign bytes that pass, a secret that others can read, a key that is replaced (and all
// secrets with it) or that two processes make twice.
#include "platform/data_protection.h"
#include "platform/data_protection_folder.h"
#include "platform/firewall/firewall_file.h"
#include "support/forked_child.h"
#include "support/temporary_folder.h"
#include <gmock/gmock.h>
#include <list>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using platform::DATA_BLOB;

constexpr uid_t nobody = 65534;

/// The result of one of the calls; nothing where it fails.
std::optional<std::string> taken(int succeeded, DATA_BLOB blob)
{
    if (!succeeded) {
        EXPECT_EQ(blob.pbData, nullptr);
        EXPECT_FALSE(platform::dataProtectionFailure().empty());
        return std::nullopt;
    }
    std::string bytes(reinterpret_cast<const char*>(blob.pbData), blob.cbData);
    EXPECT_EQ(platform::LocalFree(blob.pbData), nullptr);
    return bytes;
}

DATA_BLOB blobOf(std::string& bytes)
{
    return { static_cast<platform::DWORD>(bytes.size()), reinterpret_cast<platform::BYTE*>(bytes.data()) };
}

std::optional<std::string> protect(std::string text)
{
    DATA_BLOB in = blobOf(text), out {};
    const auto result = platform::CryptProtectData(&in, nullptr, nullptr, nullptr, nullptr, 0, &out);
    return taken(result, out);
}

std::optional<std::string> unprotect(std::string bytes)
{
    DATA_BLOB in = blobOf(bytes), out {};
    const auto result = platform::CryptUnprotectData(&in, nullptr, nullptr, nullptr, nullptr, 0, &out);
    return taken(result, out);
}

mode_t modeOf(const fs::path& path)
{
    struct stat status { };
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

struct DataProtection : testing::Test {
    /// Whether protecting and unprotecting fail for a reason that contains `reason`.
    void expectRefused(const std::string& blob, const char* reason) const
    {
        EXPECT_FALSE(protect("x"));
        EXPECT_THAT(platform::dataProtectionFailure().toStdString(), testing::HasSubstr(reason));
        EXPECT_FALSE(unprotect(blob));
        EXPECT_THAT(platform::dataProtectionFailure().toStdString(), testing::HasSubstr(reason));
    }

    test::TemporaryFolder root;
    const fs::path folder = root.path() / "data" / "core";
    const fs::path key = folder / "protection.key";
    platform::ScopedProtectionFolder scope { folder.string() };
};

TEST_F(DataProtection, GivesBackWhatWasProtectedAndShowsNoneOfIt)
{
    for (const std::size_t size : { 0, 1, 17, 4096, 1'000'000 }) {
        std::string text(size, '\0');
        for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i * 7);
        const auto blob = protect(text);
        ASSERT_TRUE(blob) << platform::dataProtectionFailure();
        EXPECT_EQ(unprotect(*blob), text) << size;
        EXPECT_TRUE(size <= 1 || blob->find(text.substr(0, 8)) == std::string::npos);
    }
    EXPECT_NE(protect("same"), protect("same"));
    EXPECT_EQ(platform::LocalFree(nullptr), nullptr);
}

TEST_F(DataProtection, NothingThatWasChangedOrCutPasses)
{
    const auto blob = protect("secret").value();
    for (std::size_t i = 0; i < blob.size(); ++i) {
        for (const char bit : { 1, 16, -128 }) {
            auto changed = blob;
            changed[i] = static_cast<char>(changed[i] ^ bit);
            EXPECT_FALSE(unprotect(changed)) << i;
        }
        EXPECT_FALSE(unprotect(blob.substr(0, i))) << i;
    }
    EXPECT_FALSE(unprotect(blob + '\0'));
    EXPECT_EQ(unprotect(blob), "secret");
}

TEST_F(DataProtection, AnotherKeyOpensNothingAndReadingMakesNone)
{
    const auto blob = protect("secret").value();
    const platform::ScopedProtectionFolder other((root.path() / "other").string());
    EXPECT_FALSE(unprotect(blob));
    EXPECT_FALSE(fs::exists(root.path() / "other"));
    ASSERT_TRUE(protect(""));
    EXPECT_FALSE(unprotect(blob));
    EXPECT_THAT(platform::dataProtectionFailure().toStdString(), testing::HasSubstr("another key"));
    fs::remove(root.path() / "other" / "protection.key");
    EXPECT_FALSE(unprotect(blob));
    EXPECT_TRUE(fs::is_empty(root.path() / "other"));
}

TEST_F(DataProtection, WhatIsNotSupportedIsRefusedRatherThanLeftOut)
{
    std::string text = "x";
    auto in = blobOf(text);
    DATA_BLOB out {};
    DATA_BLOB none { 1, nullptr };
    platform::CRYPTPROTECT_PROMPTSTRUCT prompt {};
    char16_t* description = nullptr;
    using platform::CryptProtectData, platform::CryptUnprotectData;
    EXPECT_FALSE(CryptProtectData(&in, u"name", nullptr, nullptr, nullptr, 0, &out));
    EXPECT_FALSE(CryptProtectData(&in, nullptr, &in, nullptr, nullptr, 0, &out));
    EXPECT_FALSE(CryptProtectData(&in, nullptr, nullptr, &in, nullptr, 0, &out));
    EXPECT_FALSE(CryptProtectData(&in, nullptr, nullptr, nullptr, &prompt, 0, &out));
    EXPECT_FALSE(CryptProtectData(&in, nullptr, nullptr, nullptr, nullptr, 4, &out)); // For the whole machine.
    EXPECT_FALSE(CryptProtectData(&none, nullptr, nullptr, nullptr, nullptr, 0, &out));
    EXPECT_FALSE(CryptProtectData(nullptr, nullptr, nullptr, nullptr, nullptr, 0, &out));
    EXPECT_FALSE(CryptProtectData(&in, nullptr, nullptr, nullptr, nullptr, 0, nullptr));
    EXPECT_FALSE(CryptUnprotectData(&in, &description, nullptr, nullptr, nullptr, 0, &out));
    EXPECT_FALSE(CryptUnprotectData(&in, nullptr, &in, nullptr, nullptr, 0, &out));
    EXPECT_FALSE(fs::exists(folder));
}

TEST_F(DataProtection, ABadKeyFileIsReportedAndStays)
{
    const auto blob = protect("secret").value();
    const auto content = test::readFile(key.string());
    ASSERT_EQ(content.size(), 32u);

    for (const auto mode : { 0640, 0604, 0620, 0602, 0610 }) {
        ASSERT_EQ(::chmod(key.c_str(), static_cast<mode_t>(mode)), 0);
        expectRefused(blob, "open to other users");
    }
    ASSERT_EQ(::chmod(key.c_str(), 0600), 0);
    for (const auto& wrong : { std::string(), content.substr(0, 31), content + "x" }) {
        test::writeFile(key.string(), wrong);
        expectRefused(blob, "wrong size");
        EXPECT_EQ(test::readFile(key.string()), wrong);
    }
    test::writeFile(key.string(), content);
    EXPECT_EQ(unprotect(blob), "secret");

    const auto elsewhere = root.path() / "elsewhere";
    fs::rename(key, elsewhere);
    fs::create_symlink(elsewhere, key);
    expectRefused(blob, "protection key");
    EXPECT_TRUE(fs::is_symlink(key));
    fs::remove(key);
    fs::create_directory(key);
    expectRefused(blob, "is no regular file");
    fs::remove(key);
    ASSERT_EQ(::mkfifo(key.c_str(), 0600), 0);
    expectRefused(blob, "is no regular file");
    fs::remove(key);

    fs::rename(elsewhere, key);
    ASSERT_EQ(::chmod(folder.c_str(), 0770), 0);
    expectRefused(blob, "Other users may write");
    ASSERT_EQ(::chmod(folder.c_str(), 0700), 0);
    EXPECT_EQ(unprotect(blob), "secret");
    EXPECT_EQ(test::readFile(key.string()), content);
}

TEST_F(DataProtection, TheKeyIsTheUsersAloneWhateverTheMask)
{
    for (const mode_t mask : { 0000, 0022, 0277, 0777 }) {
        const auto data = root.path() / std::to_string(mask);
        fs::create_directory(data);
        fs::permissions(root.path(), fs::perms::all);
        fs::permissions(data, fs::perms::all);
        const platform::ScopedProtectionFolder other((data / "a" / "b").string());
        // Not as root, whom no missing right would keep out.
        test::ForkedChild child([mask] {
            if (::geteuid() == 0 && ::setuid(nobody) != 0) return false;
            ::umask(mask);
            const auto blob = protect("secret");
            return blob && unprotect(*blob) == "secret";
        });
        EXPECT_TRUE(child.succeeds());
        EXPECT_EQ(modeOf(data / "a"), 0700u);
        EXPECT_EQ(modeOf(data / "a" / "b"), 0700u);
        EXPECT_EQ(modeOf(data / "a" / "b" / "protection.key"), 0600u);
        EXPECT_EQ(std::distance(fs::directory_iterator(data / "a" / "b"), {}), 1); // No unfinished key is left.
    }
}

TEST_F(DataProtection, ProcessesThatMakeTheKeyAtOnceGetTheSame)
{
    constexpr int processes = 6;
    for (int round = 0; round < 20; ++round) {
        const auto data = root.path() / std::to_string(round);
        const platform::ScopedProtectionFolder other((data / "core").string());
        fs::create_directory(data);
        int gate[2];
        ASSERT_EQ(::pipe(gate), 0);
        std::list<test::ForkedChild> children;
        for (int i = 0; i < processes; ++i) {
            children.emplace_back([&, i] {
                ::close(gate[1]);
                char byte;
                if (::read(gate[0], &byte, 1) != 0) return false; // Opens for all of them when it is closed.
                const auto blob = protect(std::to_string(i));
                if (blob) test::writeFile((data / std::to_string(i)).string(), *blob);
                return blob.has_value();
            });
        }
        ::close(gate[0]);
        ::close(gate[1]);
        for (auto& child : children) EXPECT_TRUE(child.succeeds());
        for (int i = 0; i < processes; ++i) {
            EXPECT_EQ(unprotect(test::readFile((data / std::to_string(i)).string())), std::to_string(i));
        }
        EXPECT_EQ(std::distance(fs::directory_iterator(data / "core"), {}), 1);
    }
}

TEST_F(DataProtection, AnotherUserCanNeitherReadTheKeyNorPutOneInItsPlace)
{
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become, or give files to, another user";
    const auto blob = protect("secret").value();
    // Nothing but the key's own mode keeps the other user out.
    for (const auto& path : { root.path(), root.path() / "data", folder }) ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
    const auto open = folder / "open";
    test::writeFile(open.string(), "x");
    ASSERT_EQ(::chmod(open.c_str(), 0644), 0);
    test::ForkedChild child([&] {
        if (::setgid(nobody) != 0 || ::setuid(nobody) != 0) return false;
        const auto canRead = [](const fs::path& path) { return ::access(path.c_str(), R_OK) == 0; };
        const bool isDenied = !canRead(key) && errno == EACCES;
        return canRead(open) && isDenied && !unprotect(blob) && !protect("x");
    });
    EXPECT_TRUE(child.succeeds());

    ASSERT_EQ(::chown(key.c_str(), nobody, nobody), 0);
    expectRefused(blob, "belongs to another user");
    ASSERT_EQ(::chown(key.c_str(), 0, 0), 0);
    ASSERT_EQ(::chown(folder.c_str(), nobody, nobody), 0);
    expectRefused(blob, "belongs to another user");
}

TEST(DataProtectionFolder, LiesWithTheUsersDataAsTheFirewallsFileDoes)
{
    test::ForkedChild child([] {
        const auto is = [](const char* data, const char* home, std::string_view expected) {
            ::setenv("XDG_DATA_HOME", data, 1);
            ::setenv("HOME", home, 1);
            return platform::protectionFolder() == expected
                && platform::firewallFile() == platform::protectionFolder() + "/firewall.rules";
        };
        return is("/data", "/home/u", "/data/core") && is("", "/home/u", "/home/u/.local/share/core")
            && is("relative", "/home/u", "/home/u/.local/share/core")
            && !is("", "relative", "relative/.local/share/core"); // That of the passwd entry.
    });
    EXPECT_TRUE(child.succeeds());
}

} // namespace
