// What can break here: an error without its path, a link followed while removing, times before 1970.
#include "foundation/exceptions.h"
#include "foundation/io/directory_iterator.h"
#include "foundation/io/file.h"
#include "foundation/io/path.h"
#include "support/temporary_folder.h"
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

using fn::File;
using fn::FileKind;

// The errno of the FileException that the call throws, which must name the path; 0 if it throws none.
template <typename Call> int errorOf(const fn::String& path, Call call)
{
    try {
        call();
    } catch (const fn::FileException& e) {
        EXPECT_EQ(*e.find<fn::PathInfo>(), path);
        return *e.find<fn::ErrnoInfo>();
    }
    return 0;
}

TEST(File, TellsAbsenceFromTrouble)
{
    const test::TemporaryFolder folder;
    const auto path = folder.file("file");
    test::writeFile(path, "x");
    EXPECT_TRUE(File(path).exists());
    EXPECT_FALSE(File(folder.file("other")).exists());
    EXPECT_FALSE(File(path + "/below").exists());

    const fn::String tooLong(folder.file(std::string(300, 'x')));
    EXPECT_EQ(errorOf(tooLong, [&] { File(tooLong).exists(); }), ENAMETOOLONG);
    const fn::String cut = path + std::string_view("\0.old", 5); // Must not stand for "file".
    EXPECT_EQ(errorOf(cut, [&] { File(cut).exists(); }), EINVAL);
    EXPECT_EQ(errorOf(cut, [&] { File(cut).remove(false); }), EINVAL);
    EXPECT_EQ(errorOf(cut, [&] { fn::DirectoryIterator iterator(cut); }), EINVAL);
}

TEST(File, RemovesWhatItIsToldAndNothingBehindALink)
{
    const test::TemporaryFolder folder;
    test::writeFile(folder.file("kept"), "x");
    std::filesystem::create_directories(folder.path() / "tree/deep");
    test::writeFile(folder.file("tree/deep/file"), "x");
    std::filesystem::create_directory_symlink(folder.path(), folder.path() / "tree/link");
    std::filesystem::create_symlink("nowhere", folder.path() / "dangling");

    const auto tree = folder.file("tree");
    EXPECT_EQ(errorOf(tree, [&] { File(tree).remove(false); }), ENOTEMPTY);
    File(tree).remove(true);
    EXPECT_FALSE(File(tree).exists());
    EXPECT_EQ(test::readFile(folder.file("kept")), "x");

    File(folder.file("dangling")).remove(false);
    File(folder.file("kept")).remove(true);
    for (const bool recursive : { false, true }) {
        EXPECT_EQ(errorOf(tree, [&] { File(tree).remove(recursive); }), ENOENT) << recursive;
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(File, MovesOverAnotherFileAndLeavesBothWhereItCannot)
{
    const test::TemporaryFolder folder;
    test::writeFile(folder.file("new"), "new");
    test::writeFile(folder.file("old"), "old");
    std::filesystem::create_directory(folder.path() / "folder");

    const auto source = folder.file("new");
    EXPECT_EQ(errorOf(source, [&] { File(source).moveTo(folder.file("folder")); }), EISDIR);
    EXPECT_EQ(errorOf(source, [&] { File(source).moveTo(folder.file("none/new")); }), ENOENT);
    File(source).moveTo(folder.file("old"));
    EXPECT_EQ(test::readFile(folder.file("old")), "new");
    EXPECT_FALSE(File(source).exists());
}

TEST(File, DescribesTheEntryOrWhatItsLinkLeadsTo)
{
    const test::TemporaryFolder folder;
    const auto path = folder.file("file");
    test::writeFile(path, "12345");
    ::chmod(path.c_str(), 0640);
    std::filesystem::create_symlink("file", folder.path() / "link");
    const timespec times[] = { { 0, 0 }, { -2, 500'000'000 } }; // Changed one and a half seconds before 1970.
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);

    const auto info = File(path).info();
    EXPECT_EQ(info.size, 5u);
    EXPECT_EQ(info.kind, FileKind::Regular);
    EXPECT_EQ(info.mode, 0640u);
    EXPECT_EQ(info.modified.sinceEpoch(), fn::Duration::milliseconds(-1500));
    EXPECT_GT(info.created, info.modified);

    const File link(folder.file("link"));
    EXPECT_EQ(link.info().inode, info.inode);
    EXPECT_EQ(link.info(File::Links::Keep).kind, FileKind::Link);
    EXPECT_NE(link.info(File::Links::Keep).inode, info.inode);
    EXPECT_EQ(File(folder.file("")).info().kind, FileKind::Directory);
    const auto missing = folder.file("missing");
    EXPECT_EQ(errorOf(missing, [&] { File(missing).info(); }), ENOENT);
}

TEST(DirectoryIterator, YieldsEveryEntryInTheOrderOfItsBytes)
{
    const test::TemporaryFolder folder;
    for (const auto* name : { "b", "B", "ä", ".hidden", "a b", "..c" }) test::writeFile(folder.file(name), "");
    std::filesystem::create_directory(folder.path() / "folder");
    std::filesystem::create_directory_symlink("folder", folder.path() / "link");
    std::filesystem::create_symlink("nowhere", folder.path() / "dangling");
    ASSERT_EQ(::mkfifo(folder.file("fifo").c_str(), 0600), 0);

    const std::vector<std::pair<fn::String, FileKind>> expected { { "..c", FileKind::Regular },
        { ".hidden", FileKind::Regular }, { "B", FileKind::Regular }, { "a b", FileKind::Regular },
        { "b", FileKind::Regular }, { "dangling", FileKind::Link }, { "fifo", FileKind::Pipe },
        { "folder", FileKind::Directory }, { "link", FileKind::Link }, { "ä", FileKind::Regular } };
    for (const auto& path : { folder.file(""), fn::String(folder.path().string()) }) { // With and without '/'.
        std::vector<std::pair<fn::String, FileKind>> found;
        for (const auto& entry : fn::DirectoryIterator(path)) {
            found.emplace_back(entry.name, entry.kind);
            EXPECT_EQ(entry.path, folder.file(entry.name));
        }
        EXPECT_EQ(found, expected);
    }
    const auto file = folder.file("b");
    EXPECT_EQ(errorOf(file, [&] { fn::DirectoryIterator iterator(file); }), ENOTDIR);
}

TEST(Path, IsCutAtItsLastSlash)
{
    const auto parts = [](const char* text) {
        const auto path = fn::Path::parsePath(text);
        return std::pair(path.directory.toStdString(), path.fileName.toStdString());
    };
    using Parts = std::pair<std::string, std::string>;
    EXPECT_EQ(parts("/var/log/a.b.log"), Parts("/var/log", "a.b.log"));
    EXPECT_EQ(parts("name"), Parts("", "name"));
    EXPECT_EQ(parts("/name"), Parts("/", "name"));
    EXPECT_EQ(parts("folder/"), Parts("folder", ""));
    EXPECT_EQ(parts(""), Parts("", ""));
}

} // namespace
