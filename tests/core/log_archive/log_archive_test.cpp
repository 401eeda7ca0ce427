// What can break here: an archive that no other program opens, a log that is cut or missing, a failure that is taken for
// success or leaks. The archives are read by unzip.
#include "core/services/app_info.h"
#include "core/services/log_archive.h"
#include "foundation/system/path_manager.h"
#include "support/log_capture.h"
#include "support/scoped_variable.h"
#include "support/temporary_folder.h"
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fmt/chrono.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <sys/resource.h>

namespace {

using fn::PathManager;

std::string unzip(const char* options, const fn::String& archive, const std::string& member = "")
{
    FILE* const output = ::popen(fmt::format("unzip {} {} {} 2>&1", options, archive, member).c_str(), "re");
    if (!output) return "popen";
    std::string result;
    for (int byte; (byte = std::fgetc(output)) != EOF;) result += static_cast<char>(byte);
    ::pclose(output);
    return result;
}
std::string unpacked(const fn::String& archive, const std::string& name) { return unzip("-p", archive, name); }

std::string randomBytes(std::size_t size)
{
    std::string result(size, '\0');
    std::ranges::generate(result, std::mt19937(1));
    return result;
}

// The clock of archive names. That of time() is a few milliseconds behind it.
std::time_t now() { return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()); }

class LogArchive : public testing::Test {
protected:
    LogArchive()
    {
        core::AppInfo::initialize(core::AppInfo::App::Skyfold);
        std::filesystem::create_directory(logs);
        useFolders(folder.path().string(), logs.string());
    }
    ~LogArchive() override { useFolders(std::nullopt, std::nullopt); }

    static void useFolders(std::optional<fn::String> desktop, std::optional<fn::String> logs)
    {
        PathManager::instance().overrideFolder(PathManager::DesktopFolder, std::move(desktop));
        PathManager::instance().overrideFolder(PathManager::LogFolder, std::move(logs));
    }

    fn::String placeOf(std::time_t time) const
    {
        return folder.file(fmt::format("SkyfoldLogs-{:%Y-%m-%d-%H-%M-%S}.zip", fmt::localtime(time)));
    }

    void writeLog(const char* name, std::string_view content) const
    {
        test::writeFile((logs / name).string(), content);
    }

    const test::ScopedVariable zone { "TZ", "<+0530>-5:30" }; // In which local time is told from UTC.
    const test::TemporaryFolder folder;
    const std::filesystem::path logs = folder.path() / "logs";
};

TEST_F(LogArchive, HoldsEveryLogAsItIsUnderTheLocalTime)
{
    const std::map<std::string, std::string> contents { { "Skyfold.log", "a line\r\n" },
        { "chunk.log", std::string(4096, 'x') }, { "empty.log", "" }, { "large.log.1", randomBytes(300'000) } };
    for (const auto& [name, content] : contents) writeLog(name.c_str(), content);
    writeLog("ü.log", "text");
    const auto before = now();
    const auto archive = core::LogArchive::createLogArchive();
    EXPECT_GE(archive, placeOf(before));
    EXPECT_LE(archive, placeOf(now()));
    const auto names = unzip("-Z1", archive);
    EXPECT_EQ(std::ranges::count(names, '\n'), 5) << names;
    for (const auto& [name, content] : contents) EXPECT_TRUE(unpacked(archive, name) == content) << name;
    EXPECT_EQ(std::filesystem::status(archive.toStdString()).permissions(), std::filesystem::perms(0600));
}

TEST_F(LogArchive, AFullDiskIsAFailureWhereverItStrikes)
{
    writeLog("a.log", randomBytes(200'000));
    const auto whole = test::readFile(core::LogArchive::createLogArchive()).size();
    std::signal(SIGXFSZ, SIG_IGN);
    // At the first header, in the content, in the list at the end, at the very last byte.
    for (const auto room : { std::size_t(0), std::size_t(100'000), whole - 30, whole - 1 }) {
        const test::LogCapture log;
        rlimit limit = {};
        ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
        const rlimit lowered { room, limit.rlim_max };
        ::setrlimit(RLIMIT_FSIZE, &lowered);
        const auto archive = core::LogArchive::createLogArchive();
        ::setrlimit(RLIMIT_FSIZE, &limit);
        EXPECT_EQ(archive, "") << room;
        EXPECT_TRUE(log.contains(std::strerror(EFBIG))) << room;
    }
}

} // namespace
