// What a user asks of the program beside a scan. What can break here: a switch that reaches some processes only, a secret that is
// seen, lost or stored where it should not be, a request that outlives its reason, a change that nobody allowed.
#include "core/password_manager/password_manager.h"
#include "skyfold_fixture.h"
#include "support/system_bus.h"

namespace {

using test::Program;
using test::SkyfoldTest;
namespace fs = std::filesystem;
using Output = Program::Output;

TEST_F(SkyfoldTest, VerboseLoggingIsSwitchedInAllProcessesThatRun)
{
    writeMuch();
    Program program(arguments());
    const auto scanner = holdScan(program);
    const auto logs = folder.path() / "state" / "skyfold" / "logs";
    EXPECT_FALSE(fs::exists(logs / "library.verbose.log"));

    Program switching({ "--verbose" });
    EXPECT_EQ(switching.wait(), 0);
    EXPECT_EQ(switching.output(), "Verbose logging has been switched.\n");
    ::kill(scanner, SIGCONT);
    EXPECT_EQ(program.wait(), 0);
    for (const auto* process : { "skyfold", "library", "scanner" }) {
        EXPECT_TRUE(fs::exists(logs / (std::string(process) + ".verbose.log"))) << process;
        EXPECT_TRUE(fs::exists(logs / (std::string(process) + ".default.log"))) << process;
    }

    Program archiving({ "--archive-logs" });
    EXPECT_EQ(archiving.wait(), 0);
    const auto archive = archiving.output();
    EXPECT_TRUE(archive.ends_with(".zip\n")) << archive << archiving.errors();
    EXPECT_EQ(::system(("unzip -tq '" + archive.substr(0, archive.size() - 1) + "' >/dev/null").c_str()), 0);
}

TEST_F(SkyfoldTest, TheSystemIsKeptAwakeDuringAScanAndNoLonger)
{
    const test::SystemBus bus;
    test::LoginManager manager;
    writeMuch();
    Program program(arguments({ "--inspect-web" })); // Stays when the scan is over.
    EXPECT_EQ(manager.readLine(), "sleep block held");
    EXPECT_EQ(manager.readLine(), "released");
    EXPECT_TRUE(program.awaitOutput("Done in")) << program.errors();
    program.signal(SIGINT);
    EXPECT_EQ(program.wait(), 128 + SIGINT);
}

TEST_F(SkyfoldTest, ASecretIsAskedForWithoutShowingIt)
{
    const auto stored = [](const char* group, const char* key) {
        return core::PasswordManager::instance().getPassword(group, key);
    };
    Program typed({ "--set-password", "mail", "anna" }, { .output = Output::Terminal });
    ASSERT_TRUE(typed.awaitOutput("Secret for mail, anna: "));
    typed.type("s3cret with blanks \n");
    EXPECT_EQ(typed.wait(), 0);
    EXPECT_EQ(typed.output().find("s3cret"), std::string::npos) << typed.output();
    EXPECT_EQ(stored("mail", "anna"), "s3cret with blanks ");

    Program piped({ "--set-password", "mail", "bob" }, { .input = "b0b\nnot his" });
    EXPECT_EQ(piped.wait(), 0);
    EXPECT_EQ(stored("mail", "bob"), "b0b");

    Program none({ "--set-password", "mail", "anna" });
    EXPECT_EQ(none.wait(), 1);
    EXPECT_EQ(none.errors(), "skyfold: No secret was given\n");
    Program interrupted({ "--set-password", "mail", "anna" }, { .output = Output::Terminal });
    ASSERT_TRUE(interrupted.awaitOutput(": "));
    interrupted.signal(SIGINT);
    EXPECT_EQ(interrupted.wait(), 128 + SIGINT);
    EXPECT_EQ(stored("mail", "anna"), "s3cret with blanks ");

    fs::permissions(folder.path() / "share" / "core" / "protection.key", fs::perms(0644)); // Then it protects nothing.
    Program unprotected({ "--set-password", "mail", "carl" }, { .input = "carl's\n" });
    EXPECT_EQ(unprotected.wait(), 1);
    EXPECT_NE(unprotected.errors().find("could not be encrypted"), std::string::npos) << unprotected.errors();
}

TEST_F(SkyfoldTest, TheFirewallIsShownAndChangedOnlyWhenTheUserSaysSo)
{
    Program shown({ "--firewall" });
    EXPECT_EQ(shown.wait(), 0);
    EXPECT_TRUE(shown.output().starts_with("Firewall: on\nInbound:  not admitted\nOutbound: not admitted\n"))
        << shown.output() << shown.errors();

    const auto answer = [](const char* first, const char* second, int exitCode) {
        Program asked({ "--firewall" }, { .output = Output::Terminal });
        EXPECT_TRUE(asked.awaitOutput("admit Skyfold? [y/N] ")) << asked.output();
        asked.type(first);
        if (second) {
            EXPECT_TRUE(asked.awaitOutput("Allow it? [y/N] ")) << asked.output();
            asked.type(second);
        }
        EXPECT_EQ(asked.wait(), exitCode) << asked.output();
        return asked.output();
    };
    answer("n\n", nullptr, 0);
    answer("y\n", "n\n", 1);
    const auto output = answer("y\n", "y\n", 0);
    EXPECT_NE(output.find("Inbound:  admitted\r\nOutbound: admitted"), std::string::npos) << output;
    Program admitted({ "--firewall" });
    EXPECT_EQ(admitted.wait(), 0);
    EXPECT_NE(admitted.output().find("Inbound:  admitted\n"), std::string::npos) << admitted.output();
}

TEST_F(SkyfoldTest, TheNetworkIsFollowedUntilInterrupted)
{
    Program program({ "--network" });
    ASSERT_TRUE(program.awaitOutput("\n"));
    program.signal(SIGINT);
    EXPECT_EQ(program.wait(), 128 + SIGINT);
    EXPECT_NE(program.output().find(':'), std::string::npos) << program.output();
}

} // namespace
