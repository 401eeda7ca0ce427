#pragma once
#include "foundation/json/deserializer.h"
#include "program.h"
#include "support/temporary_folder.h"
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>

namespace test {

/// Runs of the program on a folder of known content, in an environment of their own.
class SkyfoldTest : public testing::Test {
protected:
    SkyfoldTest()
    {
        std::filesystem::create_directory(files);
        useRuntimeFolder("run");
        ::setenv("XDG_STATE_HOME", (folder.path() / "state").c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", (folder.path() / "config").c_str(), 1);
        ::setenv("XDG_DATA_HOME", (folder.path() / "share").c_str(), 1);
        ::setenv("HOME", folder.path().c_str(), 1);
    }

    /// Programs with another one do not know of each other.
    void useRuntimeFolder(const char* name)
    {
        std::filesystem::create_directory(folder.path() / name);
        std::filesystem::permissions(folder.path() / name, std::filesystem::perms::owner_all);
        ::setenv("XDG_RUNTIME_DIR", (folder.path() / name).c_str(), 1);
    }

    void write(const std::filesystem::path& name, std::string_view content)
    {
        std::filesystem::create_directories((files / name).parent_path());
        writeFile((files / name).string(), content);
    }

    /// Enough to be read that a run is not over before the test has done something to it.
    void writeMuch()
    {
        for (int i = 0; i < many; ++i) {
            const auto path = files / std::to_string(i);
            writeFile(path.string(), std::to_string(i));
            std::filesystem::resize_file(path, 400'000); // Costs no disk.
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
        auto result = fn::json::deserialize(program.output());
        EXPECT_TRUE(result.remove("seconds"));
        return result;
    }

    static fn::Value expected(int files, int bytes, int distinct, int hashed, int unreadable = 0, int relaunches = 0)
    {
        return fn::Value::map({ { "files", files }, { "bytes", bytes }, { "distinct", distinct },
            { "duplicates", files - unreadable - distinct }, { "hashed", hashed }, { "unreadable", unreadable },
            { "unreadableFolders", 0 }, { "relaunches", relaunches } });
    }

    static constexpr int many = 1000;

    TemporaryFolder folder;
    const std::filesystem::path files = folder.path() / "files";
    const std::filesystem::path data = folder.path() / "data";
};

} // namespace test
