// The program as a whole, on folders whose content is known. What can break here: a file counted twice, left out or read
// without need; a run that hangs or says nonsense where a file, a module, its output or its catalogue is out of order; a
// process left behind.
#include "core/password_manager/password_manager.h"
#include "foundation/exceptions.h"
#include "foundation/json/deserializer.h"
#include "program.h"
#include "support/system_bus.h"
#include "support/temporary_folder.h"
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using test::Program;
using Output = Program::Output;

class SkyfoldTest : public testing::Test {
protected:
    SkyfoldTest()
    {
        fs::create_directory(files);
        useRuntimeFolder("run");
        ::setenv("XDG_STATE_HOME", (folder.path() / "state").c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", (folder.path() / "config").c_str(), 1);
        ::setenv("XDG_DATA_HOME", (folder.path() / "share").c_str(), 1);
        ::setenv("HOME", folder.path().c_str(), 1);
    }

    /// Programs with another one do not know of each other.
    void useRuntimeFolder(const char* name)
    {
        fs::create_directory(folder.path() / name);
        fs::permissions(folder.path() / name, fs::perms::owner_all);
        ::setenv("XDG_RUNTIME_DIR", (folder.path() / name).c_str(), 1);
    }

    void write(const fs::path& name, std::string_view content)
    {
        fs::create_directories((files / name).parent_path());
        test::writeFile((files / name).string(), content);
    }

    /// Enough to be read that a run is not over before the test has done something to it.
    void writeMuch()
    {
        for (int i = 0; i < many; ++i) {
            const auto path = files / std::to_string(i);
            test::writeFile(path.string(), std::to_string(i));
            fs::resize_file(path, 400'000); // Costs no disk.
        }
    }

    std::vector<std::string> arguments(std::vector<std::string> more = { "--json" })
    {
        more.insert(more.end(), { files.string(), "--data", data.string() });
        return more;
    }

    /// The object that a run prints, without the time.
    fn::Value scan(std::vector<std::string> options = {})
    {
        options.emplace_back("--json");
        Program program(arguments(std::move(options)));
        EXPECT_EQ(program.wait(), 0);
        return counts(program);
    }

    static fn::Value counts(Program& program)
    {
        auto result = program.json();
        EXPECT_TRUE(result.isMap() && result.remove("seconds"));
        return result;
    }

    static fn::Value expected(int files, int bytes, int distinct, int hashed, int unreadable = 0, int relaunches = 0)
    {
        return fn::Value::map({ { "files", files }, { "bytes", bytes }, { "distinct", distinct },
            { "duplicates", files - unreadable - distinct }, { "hashed", hashed }, { "unreadable", unreadable },
            { "unreadableFolders", 0 }, { "relaunches", relaunches } });
    }

    static constexpr int many = 1000;

    test::TemporaryFolder folder;
    const fs::path files = folder.path() / "files";
    const fs::path data = folder.path() / "data";
};

TEST_F(SkyfoldTest, EachRegularFileCountsOnceAndNothingElseDoes)
{
    write("a.mp3", "music");
    write("below/b.mp3", "music");
    write("below/c.txt", "words");
    write("empty", "");
    write("below/empty", "");
    write("two\nlines \x1b[2J", "1");
    write("no text: \xff\xfe\xc3", "12");
    write(std::string(255, 'n'), "123");
    write("large1", std::string(400'000, '1'));
    write("large2", std::string(400'000, '2'));
    fs::create_symlink("a.mp3", files / "link");
    fs::create_symlink("nowhere", files / "dangling");
    fs::create_directory_symlink("..", files / "below" / "loop");
    ASSERT_EQ(::mkfifo((files / "pipe").c_str(), 0600), 0);

    const int bytes = 5 + 5 + 5 + 1 + 2 + 3 + 800'000;
    EXPECT_EQ(scan(), expected(10, bytes, 8, 10));
    EXPECT_EQ(scan(), expected(10, bytes, 8, 0)) << "Unchanged files are read again.";
}

TEST_F(SkyfoldTest, AnEmptyFolderIsNoSpecialCase)
{
    EXPECT_EQ(scan(), expected(0, 0, 0, 0));
    EXPECT_EQ(scan({ "--kill-scanner" }), expected(0, 0, 0, 0, 0, 1));
}

TEST_F(SkyfoldTest, TheCatalogueFollowsWhatHappensToFilesAndKeepsFoldersApart)
{
    write("same", "12345");
    write("changed", "12345");
    write("removed", "1");
    write("gone/with its folder", "1");
    EXPECT_EQ(scan(), expected(4, 12, 2, 4));

    const auto before = fs::last_write_time(files / "changed");
    write("changed", "54321");
    fs::last_write_time(files / "changed", before + std::chrono::nanoseconds(1)); // Of the same size, hardly later.
    fs::remove(files / "removed");
    fs::remove_all(files / "gone");
    write("new", "123");
    EXPECT_EQ(scan(), expected(3, 13, 3, 2));

    Program other({ folder.path().string(), "--json", "--data", data.string() });
    EXPECT_EQ(other.wait(), 0);
    EXPECT_EQ(scan(), expected(3, 13, 3, 0));
}

TEST_F(SkyfoldTest, WhatCannotBeReadIsCountedAndNamedAndHoldsNothingUp)
{
    write("readable", "1");
    write("not\treadable", "12");
    write("locked/inside", "123");
    write("blind/inside", "1234");
    fs::permissions(files / "not\treadable", fs::perms::none);
    fs::permissions(files / "locked", fs::perms::none);
    fs::permissions(files / "blind", fs::perms::owner_read); // Lists its entries, and lets nobody look at them.

    Program json(arguments(), { .mayReadAll = false });
    EXPECT_EQ(json.wait(), 0);
    auto result = expected(2, 3, 1, 1, 1);
    result.set("unreadableFolders", 2);
    EXPECT_EQ(counts(json), result);

    Program text(arguments({}), { .mayReadAll = false });
    EXPECT_EQ(text.wait(), 0);
    const auto output = text.output();
    for (const auto* line : { "Files that could not be read: 1\n  not\\x09readable\n",
             "Folders that could not be read: 2\n  locked\n  blind\n" }) {
        EXPECT_NE(output.find(line), std::string::npos) << output;
    }
    fs::permissions(files / "not\treadable", fs::perms::owner_all);
    fs::permissions(files / "locked", fs::perms::owner_all);
    fs::permissions(files / "blind", fs::perms::owner_all);
    EXPECT_EQ(scan(), expected(4, 10, 4, 3)) << "What could not be read then is not read now.";
}

TEST_F(SkyfoldTest, AScanSurvivesItsScanner)
{
    for (int i = 0; i < 60; ++i) write(std::to_string(i), std::to_string(i / 2));
    EXPECT_EQ(scan({ "--kill-scanner", "--lumen-hall" }), expected(60, 100, 30, 60, 0, 1));
    EXPECT_EQ(scan({ "--lumen-hall" }), expected(60, 100, 30, 0));
}

TEST_F(SkyfoldTest, AScanSurvivesItsLibrary)
{
    writeMuch();
    Program program(arguments());
    const auto library = program.awaitModule("library");
    const auto scanner = program.awaitModule("scanner");
    ::kill(scanner, SIGSTOP); // The scan is not over.
    ASSERT_TRUE(program.awaitFile(data / "catalogue.sqlite")); // The console has found the library.
    ::kill(library, SIGKILL);
    ::kill(scanner, SIGCONT);
    EXPECT_EQ(program.wait(), 0);
    const auto result = counts(program);
    EXPECT_EQ(result.get("distinct"), fn::Value(many));
    EXPECT_EQ(result.get("relaunches"), fn::Value(1));
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
    const auto scanner = program.awaitModule("scanner");
    ::kill(scanner, SIGSTOP);
    ASSERT_TRUE(program.awaitFile(data / "catalogue.sqlite"));

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

struct Ending {
    int signal;
    const char* stopped; // A module that hangs, or "".
};

class SkyfoldEndingTest : public SkyfoldTest, public testing::WithParamInterface<Ending> { };

TEST_P(SkyfoldEndingTest, NoProcessIsLeftBehindAndTheCatalogueGoesOn)
{
    writeMuch();
    Program program(arguments({}));
    program.awaitModule("library");
    program.awaitModule("scanner");
    const std::string stopped = GetParam().stopped;
    if (!stopped.empty()) ::kill(program.awaitModule(stopped), SIGSTOP);
    program.signal(GetParam().signal);
    EXPECT_EQ(program.wait(), 128 + GetParam().signal);
    EXPECT_EQ(program.output().find("Done"), std::string::npos);

    const auto result = scan();
    EXPECT_EQ(result.get("files"), fn::Value(many));
    EXPECT_EQ(result.get("distinct"), fn::Value(many));
}

INSTANTIATE_TEST_SUITE_P(Signals, SkyfoldEndingTest,
    testing::Values(Ending { SIGINT, "" }, Ending { SIGINT, "scanner" }, Ending { SIGTERM, "library" }),
    [](const auto& ending) { return "Signal" + std::to_string(ending.param.signal) + ending.param.stopped; });

TEST_F(SkyfoldTest, ASecondRunOnTheSameCatalogueIsRefusedAndDoesNoHarm)
{
    writeMuch();
    Program first(arguments());
    const auto scanner = first.awaitModule("scanner");
    ::kill(scanner, SIGSTOP);
    ASSERT_TRUE(first.awaitFile(data / "catalogue.lock"));

    useRuntimeFolder("other");
    Program second(arguments());
    EXPECT_EQ(second.wait(), 1);
    EXPECT_EQ(second.output(), "");
    EXPECT_NE(second.errors().find("in use by another run"), std::string::npos) << second.errors();

    ::kill(scanner, SIGCONT);
    EXPECT_EQ(first.wait(), 0);
    EXPECT_EQ(first.json().get("distinct"), fn::Value(many));
}

TEST_F(SkyfoldTest, ASecondStartHandsItsFolderToTheFirst)
{
    writeMuch();
    const auto other = folder.path() / "other";
    fs::create_directory(other);
    test::writeFile((other / "file").string(), "other");
    Program first(arguments());
    const auto scanner = first.awaitModule("scanner");
    ::kill(scanner, SIGSTOP);
    ASSERT_TRUE(first.awaitFile(data / "catalogue.lock"));

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

TEST_F(SkyfoldTest, VerboseLoggingIsSwitchedInAllProcessesThatRun)
{
    writeMuch();
    Program program(arguments());
    const auto scanner = program.awaitModule("scanner");
    ::kill(scanner, SIGSTOP);
    ASSERT_TRUE(program.awaitFile(data / "catalogue.lock"));
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

TEST_F(SkyfoldTest, OutputThatNobodyReadsEndsQuietlyAndOutputThatIsLostDoesNot)
{
    write("file", "1");
    Program closed(arguments({}), { .output = Output::Closed });
    EXPECT_EQ(closed.wait(), 128 + SIGPIPE);
    EXPECT_EQ(closed.errors(), "");

    Program full(arguments(), { .output = Output::Full });
    EXPECT_EQ(full.wait(), 1);
    EXPECT_EQ(full.errors(), "skyfold: standard output: No space left on device\n");
}

TEST_F(SkyfoldTest, OnATerminalABarIsDrawnAndGoneInTheEnd)
{
    write("file.txt", "1");
    Program program(arguments({ "--kill-scanner" }), { .output = Output::Terminal });
    EXPECT_EQ(program.wait(), 0);
    const auto output = program.output();
    const auto bar = output.rfind("\r\033[K[");
    const auto erased = output.rfind("\r\033[K");
    EXPECT_NE(bar, std::string::npos) << output;
    EXPECT_GT(erased, bar) << output;
    EXPECT_TRUE(output.substr(erased).starts_with("\r\033[K  Files")) << output;
}

TEST_F(SkyfoldTest, WhatCannotBeDoneIsSaidAndNotDone)
{
    write("file", "1");
    const auto fails = [&](std::vector<std::string> command, int exitCode, const std::string& message) {
        Program program(std::move(command));
        EXPECT_EQ(program.wait(), exitCode);
        EXPECT_EQ(program.output(), "");
        EXPECT_NE(program.errors().find(message), std::string::npos) << program.errors();
    };
    fails({ "--unknown" }, 2, "--unknown");
    fails({ (files / "nowhere").string() }, 2, "nowhere");
    fails({ files.string(), "--json", "--data", (files / "file").string() }, 1, "file: Not a directory");

    const std::string text(10'000, 't');
    fs::create_directory(data);
    test::writeFile((data / "catalogue.sqlite").string(), text);
    fails(arguments(), 1, "catalogue.sqlite: file is not a database");
    EXPECT_EQ(test::readFile((data / "catalogue.sqlite").string()), text) << "Somebody's file is overwritten.";
}

TEST_F(SkyfoldTest, AModuleThatCannotBeStartedEndsTheProgram)
{
    const auto program = folder.path() / "programs" / "skyfold";
    fs::create_directory(program.parent_path());
    fs::copy_file(TEST_BINARY_DIR "/programs/skyfold", program);
    const auto run = [&] {
        Program alone(arguments(), { .program = program.string() });
        EXPECT_EQ(alone.wait(), 1);
        return alone.errors();
    };
    EXPECT_NE(run().find("Failed to start module console"), std::string::npos);
    fs::create_directory(folder.path() / "modules");
    fs::copy_file(TEST_BINARY_DIR "/modules/console.dll", folder.path() / "modules" / "console.dll");
    EXPECT_NE(run().find("Failed to start module library"), std::string::npos);
}

} // namespace
