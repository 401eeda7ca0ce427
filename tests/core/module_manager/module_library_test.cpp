// What can break here: a library that can not be run, and a message that does not say so.
#include "core/ipc/module_entry_point.h"
#include "support/temporary_folder.h"
#include <gtest/gtest.h>

TEST(ModuleLibrary, SaysWhatIsWrongWithAFile)
{
    const auto good = test::readFile(TEST_BINARY_DIR "/modules/test_told.dll");
    auto otherMachine = good;
    otherMachine[18] = 8; // e_machine: MIPS.
    auto otherVersion = good;
    const std::string needed = "libskyfold-core.so";
    otherVersion.replace(otherVersion.find(needed), needed.size(), "libskyfold-cote.so");
    auto noEntryPoint = good;
    for (std::size_t at = 0; (at = noEntryPoint.find("moduleEntryPoint", at)) != std::string::npos;)
        noEntryPoint[at] = 'x';

    const std::pair<std::string, const char*> rows[] {
        { std::string(1000, 'x'), "invalid ELF header" },
        { "", "file too short" },
        { good.substr(0, 200), "cannot read file data" },
        { otherMachine, "cannot open shared object file" },
        { otherVersion, "libskyfold-cote.so" },
        { noEntryPoint, "The library is no module: it has no function moduleEntryPoint" },
    };
    const test::TemporaryFolder folder;
    const auto failureOf = [&](const fn::String& path) -> std::string {
        fn::SharedLibrary library;
        try {
            ipc::loadModule(library, path);
        } catch (const fn::FileException& failure) {
            return failure.what();
        }
        return "none";
    };
    int number = 0;
    for (const auto& [content, expected] : rows) {
        const auto path = folder.file(std::to_string(++number)); // What has been loaded once stays.
        test::writeFile(path, content);
        const auto failure = failureOf(path);
        EXPECT_NE(failure.find(expected), std::string::npos) << failure;
        EXPECT_NE(failure.find(path), std::string::npos) << failure;
    }
    const auto missing = failureOf(folder.file("none"));
    EXPECT_NE(missing.find("There is no module library that can be read: No such file or directory"), std::string::npos)
        << missing;
}
