// What happens beside a scan. What can break here: a folder that is lost between two starts, or scanned in the wrong catalogue;
// a start that waits for nobody; a visitor who disturbs what he looks at; a switch that reaches some processes only, a secret
// that is seen, lost or stored where it should not be.
#include "core/services/password_manager/password_manager.h"
#include "skyfold_fixture.h"

namespace {

using test::Program;
using test::SkyfoldTest;
namespace fs = std::filesystem;
using Output = Program::Output;

/// The user of `skyfold --inspect` at a terminal.
class Visitor {
public:
    explicit Visitor(std::vector<std::string> arguments)
        : _program(std::move(arguments), { .output = Output::Terminal })
    {
        EXPECT_TRUE(_program.awaitOutput("Workers")) << _program.output();
    }

    /// Gives a command until the page holds the text: what is shown may still have to happen.
    void repeat(const std::string& command, const std::string& text)
    {
        for (int i = 0; i < 10'000 && _program.output().find(text, _shown) == std::string::npos; ++i) {
            _shown = _program.output().size();
            _program.type(command + "\n");
            if (!_program.awaitOutput("\n> ", _shown)) break;
        }
        EXPECT_NE(_program.output().find(text, _shown), std::string::npos) << text << "\n" << _program.output();
    }

    /// Gives the number of the link whose line holds `link`, in the last page.
    void follow(const std::string& link, const std::string& text)
    {
        const auto page = _program.output();
        const auto at = page.rfind(link);
        ASSERT_NE(at, std::string::npos) << link << "\n" << page;
        const auto number = page.find_first_not_of(' ', page.rfind('\n', at) + 1);
        repeat(page.substr(number, page.find(' ', number) - number), text);
    }

    void quit()
    {
        _program.type("q\n");
        EXPECT_EQ(_program.wait(), 0) << _program.output();
    }

private:
    Program _program;
    std::size_t _shown = 0; // Where the last page begins.
};

TEST_F(SkyfoldTest, ARunTakesFoldersFromLaterStartsAndIsInspectedAndSwitchedMeanwhile)
{
    writeMuch();
    const auto other = folder.path() / "other";
    fs::create_directory(other);
    test::writeFile((other / "file").string(), "other");
    Program first(arguments());
    const auto scanner = first.awaitModule("scanner");
    ::kill(scanner, SIGSTOP);
    // The library has opened its catalogue: the scan is not over.
    ASSERT_TRUE(test::await([&] { return fs::exists(data / "catalogue.lock"); }));

    const auto handOver = [&](const fs::path& what, const fs::path& where) {
        Program second({ what.string(), "--json", "--data", where.string() });
        EXPECT_EQ(second.wait(), 0);
        EXPECT_EQ(second.errors(), "Handed over to the Skyfold that is running.\n");
    };
    const auto otherData = folder.path() / "other data";
    handOver(other, otherData);
    handOver(other, otherData / "catalogue.lock"); // Fails, and harms none of the others.
    handOver(other, otherData);

    const auto logs = folder.path() / "state" / "skyfold" / "logs";
    EXPECT_FALSE(fs::exists(logs / "library.verbose.log"));
    Program switching({ "--verbose" });
    EXPECT_EQ(switching.wait(), 0);
    EXPECT_EQ(switching.output(), "Verbose logging has been switched.\n");

    Visitor visitor({ "--inspect" });
    visitor.repeat("l", "Modules");
    visitor.follow("Modules", "scanner");
    visitor.repeat("b", "Workers");
    visitor.quit();

    useRuntimeFolder("elsewhere"); // Who does not know of the first one must not touch its catalogue.
    Program refused(arguments());
    EXPECT_EQ(refused.wait(), 1);
    EXPECT_NE(refused.errors().find("in use by another run"), std::string::npos) << refused.errors();

    ::kill(scanner, SIGCONT);
    EXPECT_EQ(first.wait(), 1);
    EXPECT_NE(first.errors().find("catalogue.lock"), std::string::npos) << first.errors();
    std::string results;
    for (const auto& line : fn::String(first.output()).split('\n')) {
        const auto result = fn::json::deserialize(line);
        results += fmt::format("{}/{} ", result.get("files").toString(), result.get("hashed").toString());
    }
    EXPECT_EQ(results, "1000/1000 1/1 1/0 ");
    for (const auto* process : { "skyfold", "library", "scanner" })
        EXPECT_TRUE(fs::exists(logs / (std::string(process) + ".verbose.log"))) << process;
    Program archiving({ "--archive-logs" });
    EXPECT_EQ(archiving.wait(), 0);
    EXPECT_TRUE(archiving.output().ends_with(".zip\n")) << archiving.output() << archiving.errors();
}

TEST_F(SkyfoldTest, ASecretIsAskedForWithoutShowingIt)
{
    const std::vector<std::string> command { "--set-password", "mail", "anna" };
    const auto stored = [] { return core::PasswordManager::instance().getPassword("mail", "anna"); };
    Program piped(command, { .input = "s3cret\nnot hers" });
    EXPECT_EQ(piped.wait(), 0);
    EXPECT_EQ(stored(), "s3cret");
    Program typed(command, { .output = Output::Terminal });
    ASSERT_TRUE(typed.awaitOutput("Secret for mail, anna: "));
    typed.type("s3cret with blanks \n");
    EXPECT_EQ(typed.wait(), 0);
    EXPECT_FALSE(typed.output().contains("s3cret")) << typed.output();
    Program none(command);
    EXPECT_EQ(none.wait(), 1);
    EXPECT_EQ(none.errors(), "skyfold: No secret was given\n");
    EXPECT_EQ(stored(), "s3cret with blanks ");
}

} // namespace
