// The program as a whole, on folders whose content is known. What can break here: a file counted twice, left out or read
// without need; a run that hangs or says nonsense where a file, a module, its output or its catalogue is out of order; a
// process left behind.
#include "skyfold_fixture.h"
#include <sys/stat.h>
#include <unistd.h>

namespace {

using test::Program;
using test::skyfold;
using test::SkyfoldTest;
namespace fs = std::filesystem;
using Output = Program::Output;

TEST_F(SkyfoldTest, EachRegularFileCountsOnceAndTheCatalogueFollowsWhatHappensToIt)
{
    EXPECT_EQ(scan({ "--kill-scanner" }), expected(0, 0, 0, 0, 0, 1));
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
    EXPECT_EQ(scan({ "--kill-scanner", "--lumen-hall" }), expected(8, 800'016, 7, 8, 0, 1));

    const auto before = fs::last_write_time(files / "a.mp3");
    write("a.mp3", "noise");
    fs::last_write_time(files / "a.mp3", before + std::chrono::nanoseconds(1)); // Of the same size, hardly later.
    fs::remove(files / "large1");
    fs::remove_all(files / "below");
    write("new", "1234");
    EXPECT_EQ(scan(), expected(6, 400'015, 6, 2)) << "Unchanged files are read again.";

    Program other({ folder.path().string(), "--json", "--data", data.string() });
    EXPECT_EQ(other.wait(), 0);
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
    Program text(arguments({ "--kill-scanner" }), { .output = Output::Terminal, .mayReadAll = false });
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
    auto command = arguments({ "-c", "exec \"$0\" \"$@\" <&- 2>&-", skyfold, "--json" });
    Program program(std::move(command), { .program = "/bin/sh" });
    const auto library = program.awaitModule("library");
    const auto scanner = program.awaitModule("scanner");
    for (const char* stream : { "0", "2" })
        EXPECT_EQ(fs::read_symlink(fmt::format("/proc/{}/fd/{}", scanner, stream)), "/dev/null") << stream;
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
    EXPECT_EQ(scan().get("distinct"), fn::Value(many));
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
    fails({ (files / "nowhere").string() }, 2, "nowhere");
    fails({ files.string(), "--json", "--data", (files / "file").string() }, 1, "file: Not a directory");

    const std::string text(10'000, 't');
    fs::create_directory(data);
    test::writeFile((data / "catalogue.sqlite").string(), text);
    fails(arguments(), 1, "catalogue.sqlite: file is not a database");
    EXPECT_EQ(test::readFile((data / "catalogue.sqlite").string()), text) << "Somebody's file is overwritten.";

    const auto alone = folder.path() / "programs" / "skyfold"; // Without its modules.
    fs::create_directory(alone.parent_path());
    fs::copy_file(skyfold, alone);
    Program program(arguments(), { .program = alone.string() });
    EXPECT_EQ(program.wait(), 1);
    EXPECT_NE(program.errors().find("Failed to start module console"), std::string::npos) << program.errors();
    Program full(arguments(), { .output = Output::Full });
    EXPECT_EQ(full.wait(), 1);
}

} // namespace
