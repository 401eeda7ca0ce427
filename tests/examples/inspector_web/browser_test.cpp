// The inspectors in a real browser. What can break here: a page that a browser shows in another way than it is written, a link
// that it resolves to another address, a policy that takes the page's own style away.
#include "support/child_process.h"
#include "web_program.h"
#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>

namespace {

namespace fs = std::filesystem;

constexpr const char* chromium = "/usr/bin/chromium";
constexpr auto bound = std::chrono::seconds(120);

class BrowserTest : public test::WebProgramTest {
protected:
    void SetUp() override
    {
        if (!fs::exists(chromium)) GTEST_SKIP() << "Chromium is not installed.";
        fs::create_directories(pictures);
    }

    /// What the browser prints. It logs much that is no concern of ours, and what it refuses to show.
    std::string browse(std::vector<std::string> arguments)
    {
        const auto log = (folder.path() / "browser.log").string();
        arguments.insert(arguments.begin(),
            { "/bin/sh", "-c", "log=$1; shift; exec \"$@\" 2> \"$log\"", "sh", log, chromium, "--headless",
                "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run", "--enable-logging=stderr",
                "--user-data-dir=" + (folder.path() / "browser").string() });
        test::ChildProcess browser(arguments);
        std::string output;
        while (const auto line = browser.readLine(bound)) output += *line + '\n';
        EXPECT_EQ(browser.wait(bound), 0) << test::readFile(log);
        EXPECT_EQ(test::readFile(log).find("Content Security Policy"), std::string::npos) << test::readFile(log);
        return output;
    }

    std::string dump(const std::string& address) { return browse({ "--dump-dom", address }); }

    void takePicture(const std::string& address, const char* name)
    {
        const auto file = pictures / name;
        fs::remove(file);
        browse({ "--window-size=1000,700", "--screenshot=" + file.string(), address });
        EXPECT_GT(fs::exists(file) ? fs::file_size(file) : 0, 1000u);
        std::cout << "Picture: " << file.string() << std::endl;
    }

    const fs::path pictures = fs::path(TEST_BINARY_DIR) / "test_output" / "inspector_web";
};

TEST_F(BrowserTest, ShowsTheListAndThePagesBehindItsLinks)
{
    const auto address = awaitAddress();
    const auto list = dump(address.text);
    for (const auto* name : { "Modules", "Registry", "Workers" }) test::linkOf(list, name);
    takePicture(address.text, "list.png");

    const auto modules = dump(address.text + test::linkOf(list, "Modules"));
    EXPECT_NE(modules.find("inspector_web (process): running"), std::string::npos) << modules;

    const auto workersAddress = address.text + test::linkOf(list, "Workers");
    const auto workers = dump(workersAddress);
    takePicture(workersAddress, "workers.png");
    const auto worker = dump(address.text + test::linkOf(workers, "inspector_web ("));
    EXPECT_NE(worker.find(">Back</a>"), std::string::npos) << worker;
}

} // namespace
