// What can break here: changed bytes that pass, a secret that others can read, a key that is replaced or made twice.
#include "platform/data_protection.h"
#include "platform/data_protection_folder.h"
#include "support/forked_child.h"
#include "support/temporary_folder.h"
#include <array>
#include <functional>
#include <gmock/gmock.h>
#include <map>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using platform::DATA_BLOB;

constexpr uid_t nobody = 65534;

DATA_BLOB blobOf(std::string& bytes)
{
    return { static_cast<platform::DWORD>(bytes.size()), reinterpret_cast<platform::BYTE*>(bytes.data()) };
}

/// The result of one of the calls; nothing where it fails.
template <auto Call> std::optional<std::string> resultOf(std::string input)
{
    DATA_BLOB in = blobOf(input), out {};
    if (Call(&in, nullptr, nullptr, nullptr, nullptr, 0, &out)) {
        std::string output(reinterpret_cast<const char*>(out.pbData), out.cbData);
        platform::LocalFree(out.pbData);
        return output;
    }
    EXPECT_EQ(out.pbData, nullptr);
    EXPECT_FALSE(platform::dataProtectionFailure().empty());
    return std::nullopt;
}
constexpr auto protect = resultOf<platform::CryptProtectData>, unprotect = resultOf<platform::CryptUnprotectData>;

fs::perms modeOf(const fs::path& path) { return fs::symlink_status(path).permissions(); }

struct DataProtection : testing::Test {
    test::TemporaryFolder root;
    const fs::path folder = root.path() / "data" / "core";
    const fs::path key = folder / "protection.key";
    platform::ScopedProtectionFolder scope { folder.string() };
};

TEST_F(DataProtection, GivesBackWhatWasProtectedAndNothingThatWasChangedOrCut)
{
    for (const std::size_t size : { 0, 1, 17, 1'000'000 }) {
        std::string text(size, '\0');
        for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i * 7);
        const auto blob = protect(text);
        ASSERT_TRUE(blob) << platform::dataProtectionFailure();
        EXPECT_EQ(unprotect(*blob), text) << size;
        EXPECT_TRUE(size <= 1 || blob->find(text.substr(0, 8)) == std::string::npos);
        EXPECT_NE(protect(text), blob);
    }
    const auto blob = protect("secret").value();
    for (std::size_t i = 0; i < blob.size() * 8; ++i) {
        auto changed = blob;
        changed[i / 8] = static_cast<char>(changed[i / 8] ^ 1 << i % 8);
        EXPECT_FALSE(unprotect(changed)) << i;
        EXPECT_FALSE(unprotect(blob.substr(0, i / 8))) << i;
    }
    EXPECT_FALSE(unprotect(blob + '\0'));

    const platform::ScopedProtectionFolder other((root.path() / "other").string());
    EXPECT_FALSE(unprotect(blob));
    EXPECT_FALSE(fs::exists(root.path() / "other")) << "Reading makes no key.";
    ASSERT_TRUE(protect(""));
    EXPECT_FALSE(unprotect(blob));
    EXPECT_THAT(platform::dataProtectionFailure().toStdString(), testing::HasSubstr("another key"));
}

TEST_F(DataProtection, ABadKeyIsReportedAndStays)
{
    const auto blob = protect("secret").value();
    const auto content = test::readFile(key.string());
    std::vector<std::pair<const char*, std::function<void()>>> rows {
        { "wrong size", [&] { test::writeFile(key.string(), content.substr(0, 31)); } },
        { "wrong size", [&] { test::writeFile(key.string(), content + "x"); } },
        { "protection key",
            [&] { fs::rename(key, root.path() / "moved"), fs::create_symlink(root.path() / "moved", key); } },
        { "is no regular file", [&] { fs::remove(key), fs::create_directory(key); } },
        { "is no regular file", [&] { fs::remove(key), ::mkfifo(key.c_str(), 0600); } },
        { "Other users may write", [&] { ::chmod(folder.c_str(), 0770); } },
    };
    for (const mode_t mode : { 0640, 0604, 0620, 0602, 0610 })
        rows.emplace_back("open to other users", [&, mode] { ::chmod(key.c_str(), mode); });
    if (::geteuid() == 0) { // Only root can give files away.
        for (const auto& path : { key, folder })
            rows.emplace_back("belongs to another user", [path] { ::chown(path.c_str(), nobody, nobody); });
    }
    for (const auto& [reason, makeBad] : rows) {
        makeBad();
        const auto mode = modeOf(key);
        for (const auto& result : { protect("x"), unprotect(blob) }) {
            EXPECT_FALSE(result) << reason;
            EXPECT_THAT(platform::dataProtectionFailure().toStdString(), testing::HasSubstr(reason));
        }
        EXPECT_EQ(modeOf(key), mode) << reason;
        fs::remove_all(folder);
        EXPECT_TRUE(protect("")); // Makes it anew.
        test::writeFile(key.string(), content);
        EXPECT_EQ(unprotect(blob), "secret") << "behind: " << reason;
    }
}

TEST_F(DataProtection, TheKeyIsTheUsersAloneWhateverTheMaskAndMadeOnceByManyAtOnce)
{
    for (int round = 0; round < 20; ++round) {
        const bool isAlone = round < 4;
        const mode_t mask = isAlone ? std::array { 0000, 0022, 0277, 0777 }[static_cast<unsigned>(round)] : 0022;
        const auto data = root.path() / std::to_string(round), made = data / "a" / "b";
        fs::create_directory(data);
        for (const auto& path : { root.path(), data }) fs::permissions(path, fs::perms::all);
        const platform::ScopedProtectionFolder other(made.string());
        std::map<std::string, test::ForkedChild> children;
        for (const std::string name : { "0", "1", "2", "3", "4", "5" }) {
            if (isAlone && !children.empty()) break;
            children.try_emplace(name, [&, name] {
                // Not as root, whom no missing right would keep out.
                if (::geteuid() == 0 && ::setuid(nobody) != 0) return false;
                while (!fs::exists(data / "begin")) std::this_thread::yield(); // All of them at once.
                ::umask(mask);
                const auto blob = protect(name);
                ::umask(0022);
                if (blob) test::writeFile((data / name).string(), *blob);
                return blob && unprotect(*blob) == name;
            });
        }
        test::writeFile((data / "begin").string(), "");
        for (auto& [name, child] : children) EXPECT_TRUE(child.succeeds());
        for (const auto& path : { made.parent_path(), made }) EXPECT_EQ(modeOf(path), fs::perms(0700));
        EXPECT_EQ(modeOf(made / "protection.key"), fs::perms(0600));
        EXPECT_EQ(std::distance(fs::directory_iterator(made), {}), 1) << "An unfinished key is left.";
        if (::geteuid() != 0) continue;
        ASSERT_EQ(::chown((made / "protection.key").c_str(), 0, 0) + ::chown(made.c_str(), 0, 0), 0);
        for (const auto& [name, child] : children) EXPECT_EQ(unprotect(test::readFile((data / name).string())), name);
    }
}

} // namespace
