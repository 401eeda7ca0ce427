// Several starts of the program at once. What can break here: a folder that is lost between two of them, or scanned in the wrong
// catalogue; a start that waits for nobody; a visitor who disturbs what he looks at.
#include "foundation/json/deserializer.h"
#include "skyfold_fixture.h"

namespace {

using test::Program;
using test::SkyfoldTest;
namespace fs = std::filesystem;
using Output = Program::Output;

TEST_F(SkyfoldTest, ASecondStartHandsItsFolderToTheFirst)
{
    writeMuch();
    const auto other = folder.path() / "other";
    fs::create_directory(other);
    test::writeFile((other / "file").string(), "other");
    Program first(arguments());
    const auto scanner = holdScan(first);

    const auto handOver = [&](const fs::path& what, const fs::path& where) {
        Program second({ what.string(), "--json", "--data", where.string() });
        EXPECT_EQ(second.wait(), 0);
        EXPECT_EQ(second.output(), "");
        EXPECT_EQ(second.errors(), "Handed over to the Skyfold that is running.\n");
    };
    const auto otherData = folder.path() / "other data";
    handOver(other, data);
    handOver(other, otherData);
    const auto vanishing = folder.path() / "vanishing";
    fs::create_directory(vanishing);
    handOver(vanishing, otherData / "catalogue.lock"); // Fails, and harms none of the others.
    handOver(other, otherData);

    ::kill(scanner, SIGCONT);
    EXPECT_EQ(first.wait(), 1);
    EXPECT_NE(first.errors().find("catalogue.lock"), std::string::npos) << first.errors();
    const auto output = fn::String(first.output());
    std::vector<std::pair<fn::Value, fn::Value>> results; // Files, hashed.
    for (const auto& line : output.split('\n')) {
        const auto result = fn::json::deserialize(line);
        results.emplace_back(result.get("files"), result.get("hashed"));
    }
    EXPECT_EQ(results, (std::vector<std::pair<fn::Value, fn::Value>> { { many, many }, { 1, 1 }, { 1, 1 }, { 1, 0 } }));
}

TEST_F(SkyfoldTest, TheNextStartTakesThePlaceOfOneThatWasKilled)
{
    writeMuch();
    {
        Program first(arguments());
        first.awaitModule("scanner");
    } // Killed, with all it has started: lock and endpoint are left as they were.
    EXPECT_EQ(scan().get("files"), fn::Value(many));
}

/// The number of the link whose line holds the text, in the last page of a browser's output; "" without one.
std::string linkOn(const std::string& page, const std::string& text)
{
    const auto at = page.rfind(text);
    if (at == std::string::npos) return {};
    const auto line = page.rfind('\n', at) + 1;
    const auto number = page.find_first_not_of(' ', line);
    return page.substr(number, page.find(' ', number) - number);
}

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

    void follow(const std::string& link, const std::string& text)
    {
        const auto number = linkOn(_program.output(), link);
        ASSERT_NE(number, "") << link << "\n" << _program.output();
        repeat(number, text);
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

TEST_F(SkyfoldTest, ARunIsInspectedFromAnotherTerminal)
{
    writeMuch();
    Program program(arguments());
    const auto scanner = holdScan(program);

    Visitor visitor({ "--inspect" });
    visitor.repeat("l", "Library");
    visitor.follow("Library", "Catalogue in");
    visitor.repeat("l", "Modules");
    visitor.follow("Modules", "scanner");
    visitor.repeat("b", "Workers");
    visitor.follow("Workers", "library");
    visitor.quit();

    ::kill(scanner, SIGCONT);
    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(program.json().get("distinct"), fn::Value(many));
}

TEST_F(SkyfoldTest, WithoutARunOneIsMadeForWhoInspects)
{
    write("one", "1");
    write("two", "1");
    Visitor visitor(arguments({ "--inspect" }));
    visitor.repeat("l", "Library");
    visitor.follow("Library", "Catalogue in");
    visitor.repeat("r", ": 2 files");
    visitor.follow(": 2 files", "Distinct: 1");
    visitor.repeat("nonsense", "NUMBER follows a link");
    visitor.quit();
    EXPECT_FALSE(fs::exists(folder.path() / "run" / "core-pipes" / "skyfold-hub")) << "The address of nobody.";

    Program piped(arguments({ "--inspect" }), { .input = "l" });
    EXPECT_EQ(piped.wait(), 0) << piped.errors();
    EXPECT_NE(piped.output().find("Inspectors\n"), std::string::npos) << piped.output();
}

} // namespace
