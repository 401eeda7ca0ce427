// What can break here: a rule lost, changed or shown to others; a damaged or foreign file that is believed or replaced.
#include "base/exceptions.h"
#include "platform/firewall/detail/records_file.h"
#include "platform/firewall/firewall_file.h"
#include "support/temporary_folder.h"
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>

namespace {

namespace fs = std::filesystem;
using namespace platform;
using detail::FirewallRecords;
using detail::readRecords;
using detail::updateRecords;

void addRule()
{
    updateRecords([](FirewallRecords& records) { records.rules.emplace_back(); });
}

struct FirewallFile : testing::Test {
    test::TemporaryFolder folder;
    const fs::path made = folder.path() / "made";
    const fn::String path = folder.file("made/firewall.rules");
    ScopedFirewallFile file { path };

    /// Writes a file as its user would.
    void write(std::string_view content)
    {
        fs::remove_all(made);
        fs::create_directory(made);
        fs::permissions(made, fs::perms::owner_all); // Whatever the mask of who runs this.
        test::writeFile(path, content);
        ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
    }
};

TEST_F(FirewallFile, IsRefusedDamagedAndLeftAsItIs)
{
    const std::string good = "[Rule 1]\nname=a\ndescription=\napplicationName=/a\nprotocol=6\nprofiles=1\ndirection=1\n"
                             "action=1\nenabled=true\n[Profiles]\ncurrent=7\ndomain=true\nprivate=true\npublic=true\n";
    write(good);
    EXPECT_EQ(readRecords().rules.size(), 1U);
    std::vector<std::string> bad { std::string("\0", 1), "x", "[Rule 1", "key=value\n", "[Unknown]\na=b\n" };
    // One impossible value after the other.
    for (const auto& [was, is] : { std::pair("name=a", "name=\xFF"), { "description=\n", "" },
             { "protocol=6", "protocol=-1" }, { "profiles=1", "profiles=0" }, { "direction=1", "direction=0" },
             { "action=1", "action=2" }, { "enabled=true", "enabled=perhaps" }, { "current=7", "current=8" },
             { "current=7", "current=99999999999999999999" } })
        bad.push_back(std::string(good).replace(good.find(was), std::strlen(was), is));
    for (const auto& content : bad) {
        write(content);
        EXPECT_THROW(readRecords(), fn::DataFormatException) << content;
        EXPECT_THROW(addRule(), fn::DataFormatException) << content;
        EXPECT_EQ(test::readFile(path), content);
    }
}

TEST_F(FirewallFile, IsTrustedOnlyWhereItIsItsUsersOwn)
{
    const std::pair<const char*, std::function<void()>> rows[] = {
        { "others may write", [&] { ::chmod(path.c_str(), 0620); } },
        { "a pipe, and nobody waits for its writer", [&] { fs::remove(path.view()), ::mkfifo(path.c_str(), 0600); } },
        { "too large", [&] { write("# " + std::string(4 * 1024 * 1024, 'x') + "\n"); } },
    };
    for (const auto& [what, makeBad] : rows) {
        write("");
        EXPECT_TRUE(readRecords().rules.empty());
        makeBad();
        EXPECT_THROW(readRecords(), fn::IOException) << what;
        EXPECT_THROW(addRule(), fn::IOException) << what;
    }
}

TEST_F(FirewallFile, KeepsTheFormerRulesWhereAChangeFailsAndLosesNoneWhereSeveralAddAtOnce)
{
    addRule();
    EXPECT_EQ(fs::status(path.view()).permissions(), fs::perms(0600));
    const auto before = test::readFile(path);
    EXPECT_ANY_THROW(updateRecords([](FirewallRecords& records) {
        records.rules.emplace_back().name = std::string(4 * 1024 * 1024, 'x'); // It could not be read again.
    }));
    EXPECT_EQ(test::readFile(path), before);
    test::writeFile(path + ".new", "half of a fi"); // What an ended process has left is no obstacle.
    const auto addMany = [] {
        for (int i = 0; i < 20; ++i) addRule();
    };
    std::jthread first(addMany), second(addMany);
    first.join();
    second.join();
    EXPECT_EQ(readRecords().rules.size(), 41U);
    EXPECT_FALSE(fs::exists((path + ".new").view()));
    const ScopedFirewallFile impossible(path + "/firewall.rules");
    EXPECT_THROW(addRule(), fn::IOException) << "Its folder can not be made.";
}

} // namespace
