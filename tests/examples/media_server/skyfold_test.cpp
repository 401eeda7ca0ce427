// The program as a whole, on folders whose content is known. What can break here: a file counted twice, left out or read
// without need; a run that hangs or says nonsense where a file, a module, its output or its catalogue is out of order; a folder
// that is lost between two starts; a process left behind, or one that a switch does not reach; a secret that is seen or lost.
#include "core/services/password_manager/password_manager.h"
#include "foundation/json/deserializer.h"
#include "program.h"
#include "support/temporary_folder.h"
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <regex>
#include <sys/stat.h>

namespace {

using test::Program;
using test::skyfold;
namespace fs = std::filesystem;

/// Runs of the program on a folder of known content, in an environment of their own.
class SkyfoldTest : public testing::Test {
protected:
    SkyfoldTest()
    {
        fs::create_directory(files);
        useRuntimeFolder("run");
        ::setenv("HOME", folder.path().c_str(), 1);
        for (const auto* name : { "XDG_STATE_HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME" })
            ::setenv(name, (folder.path() / name).c_str(), 1);
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

    /// The command that scans them, behind what `prefix` does before.
    std::vector<std::string> command(
        std::vector<std::string> options = { "--json" }, std::vector<std::string> prefix = {})
    {
        prefix.insert(prefix.end(), { skyfold, files.string(), "--data", data.string() });
        prefix.insert(prefix.end(), options.begin(), options.end());
        return prefix;
    }

    /// The object that a run prints, without the time.
    fn::Value scan(std::vector<std::string> options = {})
    {
        options.emplace_back("--json");
        Program program(command(std::move(options)));
        EXPECT_EQ(program.wait(), 0);
        return counts(program);
    }

    static fn::Value counts(Program& program)
    {
        auto result = fn::json::deserialize(program.output());
        EXPECT_TRUE(result.remove("seconds"));
        return result;
    }

    static fn::Value expected(int files, int bytes, int distinct, int hashed, int relaunches = 0)
    {
        return fn::Value::map(
            { { "files", files }, { "bytes", bytes }, { "distinct", distinct }, { "duplicates", files - distinct },
                { "hashed", hashed }, { "unreadable", 0 }, { "unreadableFolders", 0 }, { "relaunches", relaunches } });
    }

    static constexpr int many = 1000;

    test::TemporaryFolder folder;
    const fs::path files = folder.path() / "files";
    const fs::path data = folder.path() / "data";
};

TEST_F(SkyfoldTest, EachRegularFileCountsOnceAndTheCatalogueFollowsWhatHappensToIt)
{
    EXPECT_EQ(scan({ "--kill-scanner" }), expected(0, 0, 0, 0, 1));
    write("a.mp3", "music");
    write("below/b.mp3", "music");
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
    EXPECT_EQ(scan({ "--kill-scanner", "--lumen-hall" }), expected(8, 800'016, 7, 8, 1));
    EXPECT_TRUE(fs::exists(folder.file("XDG_STATE_HOME/lumenhall/logs/scanner.default.log").c_str()));

    const auto before = fs::last_write_time(files / "a.mp3");
    write("a.mp3", "noise");
    fs::last_write_time(files / "a.mp3", before + std::chrono::nanoseconds(1)); // Of the same size, hardly later.
    fs::remove(files / "large1");
    fs::remove_all(files / "below");
    write("new", "1234");
    EXPECT_EQ(scan(), expected(6, 400'015, 6, 2)) << "Unchanged files are read again.";

    Program other({ skyfold, folder.path().string(), "--json", "--log", "4", "--data", data.string() });
    EXPECT_EQ(other.wait(), 0);
    EXPECT_TRUE(other.errors().contains("Scanning ")) << "Of the scanner's log: " << other.errors();
    EXPECT_EQ(scan(), expected(6, 400'015, 6, 0));
}

TEST_F(SkyfoldTest, WhatCannotBeReadIsCountedAndNamedAndHoldsNothingUp)
{
    write("readable", "1");
    write("not\treadable", "12");
    write("locked/inside", "123");
    write("blind/inside", "1234");
    const auto permit = [&](fs::perms all, fs::perms blind) {
        fs::permissions(files / "not\treadable", all);
        fs::permissions(files / "locked", all);
        fs::permissions(files / "blind", blind);
    };
    permit(fs::perms::none, fs::perms::owner_read); // Which lists its entries, and lets nobody look at them.
    const std::vector<std::string> asAnyUser { "/usr/bin/setpriv", "--bounding-set=-dac_override,-dac_read_search" };
    Program text(command({ "--kill-scanner" }, asAnyUser), Program::Streams::Terminal);
    EXPECT_EQ(text.wait(), 0);
    const auto output = text.output();
    const auto bar = output.rfind("\r\033[K["); // It is gone in the end.
    for (const auto* line : { "\r\033[K  Files", "Files that could not be read: 1\r\n  not\\x09readable\r\n",
             "Folders that could not be read: 2\r\n  locked\r\n  blind\r\n" }) {
        EXPECT_NE(output.find(line, bar), std::string::npos) << output;
    }
    permit(fs::perms::owner_all, fs::perms::owner_all);
    EXPECT_EQ(scan(), expected(4, 10, 4, 3)) << "What could not be read then is not read now.";
}

TEST_F(SkyfoldTest, AScanSurvivesItsLibraryAndMissingStandardStreams)
{
    writeMuch();
    Program program(command({ "--json" }, { "/bin/sh", "-c", "exec \"$0\" \"$@\" <&- 2>&-" })); // Streams are missing.
    const auto library = program.awaitModule("library");
    const auto scanner = program.awaitModule("scanner");
    ::kill(scanner, SIGSTOP); // The scan is not over.
    // The console has found the library.
    ASSERT_TRUE(test::await([&] { return fs::exists(data / "catalogue.sqlite"); }));
    ::kill(library, SIGKILL);
    ::kill(scanner, SIGCONT);
    EXPECT_EQ(program.wait(), 0);
    const auto result = counts(program);
    EXPECT_EQ(result.get("distinct"), fn::Value(many));
    EXPECT_EQ(result.get("relaunches"), fn::Value(1));
}

TEST_F(SkyfoldTest, NoProcessIsLeftBehindAndTheCatalogueGoesOnHoweverARunEnds)
{
    writeMuch();
    const std::pair<int, const char*> rows[] = { { SIGINT, "scanner" }, { SIGTERM, "library" } }; // Which hangs.
    for (const auto& [signal, stopped] : rows) {
        Program program(command({}));
        program.awaitModule("library");
        program.awaitModule("scanner");
        ::kill(program.awaitModule(stopped), SIGSTOP);
        program.signal(signal);
        EXPECT_EQ(program.wait(), 128 + signal) << stopped;
        EXPECT_FALSE(program.output().contains("Done"));
    }
    {
        Program killed(command());
        killed.awaitModule("scanner");
    } // With all it has started: lock and endpoint are left as they were.
    EXPECT_EQ(scan().get("distinct"), fn::Value(many));
}

TEST_F(SkyfoldTest, WhatCannotBeDoneIsSaidAndNotDone)
{
    write("file", "1");
    const auto fails = [&](std::vector<std::string> what, int exitCode, const std::string& message) {
        Program program(std::move(what));
        EXPECT_EQ(program.wait(), exitCode);
        EXPECT_EQ(program.output(), "");
        EXPECT_TRUE(program.errors().contains(message)) << program.errors();
    };
    fails({ skyfold, (files / "nowhere").string() }, 2, "nowhere");
    fails({ skyfold, files.string(), "--json", "--data", (files / "file").string() }, 1, "file: Not a directory");
    fails(command({}, { "/bin/sh", "-c", "exec \"$0\" \"$@\" > /dev/full" }), 1, "No space left on device");

    const std::string text(10'000, 't');
    fs::create_directories(data);
    test::writeFile((data / "catalogue.sqlite").string(), text);
    fails(command(), 1, "catalogue.sqlite: file is not a database");
    EXPECT_EQ(test::readFile((data / "catalogue.sqlite").string()), text) << "Somebody's file is overwritten.";

    const auto alone = folder.path() / "programs" / "skyfold"; // Without its modules.
    fs::create_directory(alone.parent_path());
    fs::copy_file(skyfold, alone);
    fails({ alone.string(), files.string() }, 1, "Failed to start module console");
}

/// Gives a command to `skyfold --inspect` until the page that it shows holds the text: that may still have to happen.
std::string browse(Program& program, const std::string& command, const std::string& text)
{
    std::string page;
    for (int i = 0; i < 10'000 && !page.contains(text); ++i) {
        const auto shown = program.output().size();
        program.type(command + "\n");
        if (!program.awaitOutput("\n> ", shown)) break;
        page = program.output().substr(shown);
    }
    EXPECT_TRUE(page.contains(text)) << text << "\n" << program.output();
    return page;
}

TEST_F(SkyfoldTest, ARunTakesFoldersFromLaterStartsAndIsInspectedAndSwitchedMeanwhile)
{
    writeMuch();
    const auto other = folder.path() / "other";
    fs::create_directory(other);
    test::writeFile((other / "file").string(), "other");
    Program first(command());
    const auto scanner = first.awaitModule("scanner");
    ::kill(scanner, SIGSTOP);
    // The library has opened its catalogue: the scan is not over.
    ASSERT_TRUE(test::await([&] { return fs::exists(data / "catalogue.lock"); }));

    const auto handOver = [&](const fs::path& where) {
        Program second({ skyfold, other.string(), "--json", "--data", where.string() });
        EXPECT_EQ(second.wait(), 0);
        EXPECT_EQ(second.errors(), "Handed over to the Skyfold that is running.\n");
    };
    const auto otherData = folder.path() / "other data";
    handOver(otherData);
    handOver(otherData / "catalogue.lock"); // Fails, and harms none of the others.
    handOver(otherData);

    const auto logs = folder.path() / "XDG_STATE_HOME" / "skyfold" / "logs";
    EXPECT_FALSE(fs::exists(logs / "library.verbose.log"));
    Program switching({ skyfold, "--verbose" });
    EXPECT_EQ(switching.wait(), 0);
    EXPECT_EQ(switching.output(), "Verbose logging has been switched.\n");

    Program visitor({ skyfold, "--inspect" }, Program::Streams::Terminal);
    const auto list = browse(visitor, "l", "Modules");
    std::smatch link;
    ASSERT_TRUE(std::regex_search(list, link, std::regex("([0-9]+)  Modules")));
    browse(visitor, link[1], "scanner");
    browse(visitor, "b", "Workers");
    visitor.type("q\n");
    EXPECT_EQ(visitor.wait(), 0) << visitor.output();

    useRuntimeFolder("elsewhere"); // Who does not know of the first one must not touch its catalogue.
    Program refused(command());
    EXPECT_EQ(refused.wait(), 1);
    EXPECT_TRUE(refused.errors().contains("in use by another run")) << refused.errors();

    ::kill(scanner, SIGCONT);
    EXPECT_EQ(first.wait(), 1);
    EXPECT_TRUE(first.errors().contains("catalogue.lock")) << first.errors();
    std::string results;
    for (const auto& line : fn::String(first.output()).split('\n')) {
        const auto result = fn::json::deserialize(line);
        results += fmt::format("{}/{} ", result.get("files").toString(), result.get("hashed").toString());
    }
    EXPECT_EQ(results, "1000/1000 1/1 1/0 ");
    for (const auto* process : { "skyfold", "library", "scanner" })
        EXPECT_TRUE(fs::exists(logs / (std::string(process) + ".verbose.log"))) << process;
    Program archiving({ skyfold, "--archive-logs" });
    EXPECT_EQ(archiving.wait(), 0);
    EXPECT_TRUE(archiving.output().ends_with(".zip\n")) << archiving.output() << archiving.errors();
}

TEST_F(SkyfoldTest, TheInspectorsAreShownInABrowserAndTheirModuleComesBackAndEndsWithTheOthers)
{
    Program program(command({ "--inspect-web", "--json" }));
    std::string address;
    const auto awaitNext = [&] {
        return test::await([&, seen = address] {
            const auto errors = program.errors();
            std::smatch found;
            if (std::regex_search(errors, found, std::regex("[^]*Inspect at (.*)\n"))) address = found[1];
            return address != seen;
        });
    };
    ASSERT_TRUE(awaitNext()) << program.errors();
    const auto* open = "import sys, urllib.request as web; print(web.urlopen(sys.argv[1]).read())";
    Program browser({ "/usr/bin/python3", "-c", open, address });
    EXPECT_EQ(browser.wait(), 0) << browser.errors();
    EXPECT_TRUE(browser.output().contains("Workers</a>")) << browser.output();
    ::kill(program.awaitModule("inspector_web"), SIGKILL);
    ASSERT_TRUE(awaitNext()) << "It is a new one each time.\n" << program.errors();
    program.signal(SIGTERM);
    EXPECT_EQ(program.wait(), 128 + SIGTERM);
    const auto log = test::readFile(folder.file("XDG_STATE_HOME/skyfold/logs/skyfold.default.log"));
    EXPECT_TRUE(log.contains("Module inspector_web did exit (status: 0, signal 0)")) << log;
}

TEST_F(SkyfoldTest, ASecretIsAskedForWithoutShowingIt)
{
    const auto set = [](const char* shell) -> std::vector<std::string> {
        return { "/bin/sh", "-c", shell, skyfold, "--set-password", "mail", "anna" };
    };
    const auto stored = [] { return core::PasswordManager::instance().getPassword("mail", "anna"); };
    Program piped(set("printf 's3cret\nnot hers' | \"$0\" \"$@\""));
    EXPECT_EQ(piped.wait(), 0);
    EXPECT_EQ(stored(), "s3cret");
    Program typed(set("exec \"$0\" \"$@\""), Program::Streams::Terminal);
    ASSERT_TRUE(typed.awaitOutput("Secret for mail, anna: "));
    typed.type("s3cret with blanks \n");
    EXPECT_EQ(typed.wait(), 0);
    EXPECT_FALSE(typed.output().contains("s3cret")) << typed.output();
    Program none(set("exec \"$0\" \"$@\""));
    EXPECT_EQ(none.wait(), 1);
    EXPECT_EQ(none.errors(), "skyfold: No secret was given\n");
    EXPECT_EQ(stored(), "s3cret with blanks ");
}

} // namespace
