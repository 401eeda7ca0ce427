// What can break here: a file that is seen half written by another process, or stays so when a writer is killed.
#include "core/password_manager/password_manager_generic.h"
#include "core/password_manager/windows_encryption.h"
#include "platform/data_protection_folder.h"
#include "support/forked_child.h"
#include "support/temporary_folder.h"
#include <chrono>
#include <gtest/gtest.h>
#include <random>
#include <unistd.h>

namespace {

using core::PasswordManagerGeneric;

/// Large enough for several writes a file.
const std::string filler(10'000, 'x');

struct SharedStore : testing::Test {
    template <typename Encryption> PasswordManagerGeneric makeManager() const
    {
        return { std::make_unique<Encryption>(), core::Preferences(path) };
    }

    /// The group "g" of the file as it is: the manager's own reading would repair what it can not parse.
    fn::Value readGroup() const
    {
        core::Preferences preferences(path);
        preferences.reload();
        const auto* const group = preferences.root().valueForPathIfExists("passwords.g");
        return group ? *group : fn::Value(fn::Value::MAP);
    }

    test::TemporaryFolder folder;
    const fn::String path = folder.file("Test.prefs");
    platform::ScopedProtectionFolder protection { folder.file("key") };
};

std::string nameOf(int number) { return "key " + std::to_string(number); }
std::string secretOf(int number) { return "secret " + std::to_string(number); }

TEST_F(SharedStore, ReadersNeverSeeAFileThatDoesNotParseWhileTwoWriteAtOnce)
{
    constexpr int changes = 200, count = 20;
    const auto write = [this](int first) {
        auto manager = makeManager<core::WindowsEncryption>();
        for (int i = 0; i < changes; ++i) {
            const auto number = first + i % count;
            manager.setPassword("g", nameOf(number), secretOf(number));
        }
        return true;
    };
    makeManager<core::WindowsEncryption>().setPassword("g", "filler", filler);
    test::ForkedChild first([&] { return write(0); });
    test::ForkedChild second([&] { return write(count); });
    int reads = 0;
    while (first.isRunning() || second.isRunning()) {
        ASSERT_NO_THROW(readGroup()) << "read " << reads;
        ++reads;
    }
    EXPECT_GT(reads, 10);
    EXPECT_TRUE(first.succeeds());
    EXPECT_TRUE(second.succeeds());

    auto manager = makeManager<core::WindowsEncryption>();
    EXPECT_EQ(manager.getPassword("g", "filler"), fn::String(filler));
    const auto group = readGroup();
    for (int i = 0; i < 2 * count; ++i) {
        EXPECT_TRUE(!group.has(nameOf(i)) || manager.getPassword("g", nameOf(i)) == fn::String(secretOf(i))) << i;
    }
    EXPECT_TRUE(group.has(nameOf(count - 1)) || group.has(nameOf(2 * count - 1))); // The last change of all is there.
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        EXPECT_NE(entry.path().extension(), ".tmp") << entry.path();
    }
}

/// Stores one secret after the other, beginning with `next`, and says so in `report`, until it is killed.
bool storeWithoutEnd(PasswordManagerGeneric manager, int next, int report)
{
    for (;; ++next) {
        manager.setPassword("g", nameOf(next), secretOf(next));
        if (::write(report, &next, sizeof next) != sizeof next) return false;
    }
}

TEST_F(SharedStore, AWriterKilledAtAnyMomentLosesNothingThatItHasReported)
{
    std::minstd_rand random(1);
    std::uniform_int_distribution<int> reports(1, 5), microseconds(0, 1000);
    makeManager<core::Encryption>().setPassword("g", "filler", filler);
    int next = 0;
    for (int round = 0; round < 50; ++round) {
        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        test::ForkedChild writer([&] { return storeWithoutEnd(makeManager<core::Encryption>(), next, ends[1]); });
        ::close(ends[1]);
        int reported = 0;
        for (int i = reports(random); i > 0; --i)
            ASSERT_EQ(::read(ends[0], &reported, sizeof reported), sizeof reported);
        // Not a wait for anything, but another moment each time.
        const auto moment = std::chrono::steady_clock::now() + std::chrono::microseconds(microseconds(random));
        while (std::chrono::steady_clock::now() < moment) { }
        writer.kill();
        while (::read(ends[0], &reported, sizeof reported) == sizeof reported) { }
        ::close(ends[0]);

        fn::Value group;
        ASSERT_NO_THROW(group = readGroup()) << "round " << round;
        ASSERT_EQ(group.get("filler"), fn::Value(filler));
        next = reported + 1;
        for (int i = 0; i < next; ++i) ASSERT_EQ(group.get(nameOf(i)), fn::Value(secretOf(i))) << "round " << round;
    }
}

} // namespace
