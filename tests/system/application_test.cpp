// A main program as its user sees it: what it prints, how it ends, and what another start of it does.
#include "support/child_process.h"
#include "support/scoped_variable.h"
#include "support/temporary_folder.h"
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

const std::string path = TEST_BINARY_DIR "/programs/test_application";

/// With both its outputs in one pipe, and a process group of its own, as a terminal gives one to a program.
class TestApplication : public test::ChildProcess {
public:
    explicit TestApplication(const std::string& arguments = {}, const std::string& program = path)
        : ChildProcess({ "/bin/sh", "-c", "exec setsid '" + program + "' " + arguments + " 2>&1" })
    {
    }

    /// What Ctrl-C does.
    void interrupt() const
    {
        if (::kill(-pid(), SIGINT) != 0) signal(SIGINT); // There is no group yet.
    }

    /// Its lines to the end, which comes when its modules have gone, too.
    std::string rest()
    {
        std::string all;
        while (const auto line = readLine()) all += *line + "\n";
        return all;
    }
};

class ApplicationTest : public testing::Test {
protected:
    const test::TemporaryFolder folder;
    const test::ScopedVariable runtime { "XDG_RUNTIME_DIR", folder.path().string() };
    const test::ScopedVariable state { "XDG_STATE_HOME", folder.path().string() };
};

} // namespace

TEST_F(ApplicationTest, EndsAtASignalInWhateverMomentAndSaysNothing)
{
    for (int milliseconds = 0; milliseconds < 60; milliseconds += 3) {
        TestApplication application("test_busy_module"); // Never ends by itself.
        (void)application.readLine(std::chrono::milliseconds(milliseconds));
        application.interrupt();
        EXPECT_EQ(application.wait(), 128 + SIGINT);
        const auto said = application.rest();
        EXPECT_TRUE(said.empty() || said == "busy\n" || said == "running\n" || said == "running\nbusy\n"
            || said == "busy\nrunning\n")
            << said;
    }
}

TEST_F(ApplicationTest, HandsItsCommandToTheOneThatRuns)
{
    TestApplication first;
    ASSERT_EQ(first.readLine(), "running");
    TestApplication second("--log 3 a 'b c'");
    EXPECT_EQ(second.rest(), "Handed over to the test_application that is running.\n");
    EXPECT_EQ(second.wait(), 0);
    EXPECT_EQ(first.readLine(), R"(["a", "b c"])");
    {
        const test::ScopedVariable name("TEST_NAME", "Other");
        TestApplication other;
        EXPECT_EQ(other.rest(),
            "test_application: \"test_application\" is running under the id \"test_application\", which is also that "
            "of "
            "\"Other\". End it, and give one of them another id.\n");
        EXPECT_EQ(other.wait(), 1);
    }
    first.signal(SIGTERM);
    EXPECT_EQ(first.rest(), "");
    EXPECT_EQ(first.wait(), 128 + SIGTERM);
}

TEST_F(ApplicationTest, SaysWhatIsWrongAndEnds)
{
    const auto odd = folder.path().string() + "/My Thumbs!";
    std::filesystem::copy_file(path, odd);
    const struct {
        std::string arguments, program, text;
        int exitCode;
    } cases[] = {
        { "--version", path, "test_application 0\n", 0 },
        { "--version", odd, "can not be", 1 },
        { "--log nine", path, "--log takes a priority, 0 to 7, and not \"nine\"", 2 },
        { "--log", path, "and not \"\"", 2 },
        { "", odd, "The id of an application can not be \"my thumbs!\": it is 1 to 32 of a-z", 1 },
        { "no_such_module", path, "no_such_module", 1 },
        { "../evil", path, "../evil", 1 },
    };
    for (const auto& [arguments, program, text, exitCode] : cases) {
        TestApplication application(arguments, program);
        const auto said = application.rest();
        EXPECT_NE(said.find(text), std::string::npos) << said;
        EXPECT_EQ(application.wait(), exitCode) << arguments;
    }
}
