// The program as a whole, on folders whose content is known. What can break here: a file counted twice, left out or read
// without need; a run that hangs or says nonsense where a file, a module, its output or its catalogue is out of order; a
// process left behind.
#include "skyfold_fixture.h"
#include <sys/stat.h>
#include <unistd.h>

namespace {

using test::Program;
using test::SkyfoldTest;
namespace fs = std::filesystem;
using Output = Program::Output;

TEST_F(SkyfoldTest, EachRegularFileCountsOnceAndNothingElseDoes)
{
    EXPECT_EQ(scan({ "--kill-scanner" }), expected(0, 0, 0, 0, 0, 1));
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
    EXPECT_EQ(scan({ "--kill-scanner", "--lumen-hall" }), expected(10, bytes, 8, 10, 0, 1));
    EXPECT_EQ(scan(), expected(10, bytes, 8, 0)) << "Unchanged files are read again.";
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

TEST_F(SkyfoldTest, AScanSurvivesItsLibrary)
{
    writeMuch();
    Program program(arguments());
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
        Program program(arguments({}));
        program.awaitModule("library");
        program.awaitModule("scanner");
        ::kill(program.awaitModule(stopped), SIGSTOP);
        program.signal(signal);
        EXPECT_EQ(program.wait(), 128 + signal) << stopped;
        EXPECT_EQ(program.output().find("Done"), std::string::npos);
    }
    {
        Program killed(arguments());
        killed.awaitModule("scanner");
    } // With all it has started: lock and endpoint are left as they were.
    const auto result = scan();
    EXPECT_EQ(result.get("files"), fn::Value(many));
    EXPECT_EQ(result.get("distinct"), fn::Value(many));
}

TEST_F(SkyfoldTest, OnATerminalABarIsDrawnAndGoneInTheEnd)
{
    write("file.txt", "1");
    Program program(arguments({ "--kill-scanner" }), { .output = Output::Terminal });
    EXPECT_EQ(program.wait(), 0);
    const auto output = program.output();
    const auto bar = output.rfind("\r\033[K[");
    EXPECT_NE(output.find("\r\033[K  Files", bar), std::string::npos) << output;
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

    const auto alone = folder.path() / "programs" / "skyfold"; // Without its modules.
    fs::create_directory(alone.parent_path());
    fs::copy_file(TEST_BINARY_DIR "/programs/skyfold", alone);
    Program program(arguments(), { .program = alone.string() });
    EXPECT_EQ(program.wait(), 1);
    EXPECT_NE(program.errors().find("Failed to start module console"), std::string::npos) << program.errors();
    Program full(arguments(), { .output = Output::Full });
    EXPECT_EQ(full.wait(), 1);
}

} // namespace
