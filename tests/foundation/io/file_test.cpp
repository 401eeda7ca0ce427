// What can break here: an error without its path, a link followed while removing, times before 1970.
#include "foundation/exceptions.h"
#include "foundation/io/directory_iterator.h"
#include "foundation/io/file.h"
#include "support/temporary_folder.h"
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using fn::File;
using fn::FileKind;

struct Files : testing::Test {
    Files()
    {
        test::writeFile(file, "12345");
        fs::create_directories(folder.path() / "tree/deep");
        test::writeFile(folder.file("tree/deep/file"), "x");
        fs::create_directory_symlink(folder.path(), folder.path() / "tree/link");
        fs::create_symlink("nowhere", folder.path() / "dangling");
        fs::create_symlink("file", folder.path() / "link");
    }

    /// The errno of the FileException that the call throws, which must name the path; 0 if it throws none.
    template <typename Call> static int errorOf(const fn::String& path, Call call)
    {
        try {
            call();
        } catch (const fn::FileException& e) {
            EXPECT_EQ(*e.find<fn::PathInfo>(), path);
            return *e.find<fn::ErrnoInfo>();
        }
        return 0;
    }

    const test::TemporaryFolder folder;
    const fn::String file = folder.file("file");
    const fn::String tree = folder.file("tree");
    const fn::String none = folder.file("none");
};

TEST_F(Files, ErrorsNameTheirPathAndAbsenceIsNone)
{
    EXPECT_TRUE(File(file).exists());
    EXPECT_FALSE(File(none).exists());
    EXPECT_FALSE(File(file + "/below").exists());
    const fn::String tooLong(folder.file(std::string(300, 'x')));
    EXPECT_EQ(errorOf(tooLong, [&] { File(tooLong).exists(); }), ENAMETOOLONG);
    const fn::String cut = file + std::string_view("\0.old", 5); // Must not stand for "file".
    EXPECT_EQ(errorOf(cut, [&] { File(cut).remove(false); }), EINVAL);
    EXPECT_EQ(errorOf(cut, [&] { fn::DirectoryIterator iterator(cut); }), EINVAL);
    EXPECT_EQ(errorOf(file, [&] { fn::DirectoryIterator iterator(file); }), ENOTDIR);
    EXPECT_EQ(errorOf(none, [&] { File(none).info(); }), ENOENT);
    for (const bool recursive : { false, true })
        EXPECT_EQ(errorOf(none, [&] { File(none).remove(recursive); }), ENOENT) << recursive;
}

TEST_F(Files, AreRemovedAndNothingBehindALinkAndMovedOverAnother)
{
    EXPECT_EQ(errorOf(tree, [&] { File(tree).remove(false); }), ENOTEMPTY);
    EXPECT_EQ(errorOf(file, [&] { File(file).moveTo(tree); }), EISDIR);
    File(tree).remove(true);
    const auto old = folder.file("dangling");
    File(file).moveTo(old); // Over what is there.
    EXPECT_FALSE(File(file).exists());
    EXPECT_EQ(test::readFile(old), "12345");
    File(folder.file("link")).remove(false);
    File(old).remove(true);
    EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST_F(Files, AreDescribedOrWhatTheirLinkLeadsTo)
{
    ::chmod(file.c_str(), 0640);
    const timespec times[] = { { 0, 0 }, { -2, 500'000'000 } }; // Changed one and a half seconds before 1970.
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    const auto info = File(file).info();
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
}

TEST_F(Files, AreListedInTheOrderOfTheirBytes)
{
    for (const auto* name : { "B", "ä", ".hidden", "a b", "..c" }) test::writeFile(folder.file(name), "");
    ASSERT_EQ(::mkfifo(folder.file("fifo").c_str(), 0600), 0);
    const std::vector<std::pair<fn::String, FileKind>> expected { { "..c", FileKind::Regular },
        { ".hidden", FileKind::Regular }, { "B", FileKind::Regular }, { "a b", FileKind::Regular },
        { "dangling", FileKind::Link }, { "fifo", FileKind::Pipe }, { "file", FileKind::Regular },
        { "link", FileKind::Link }, { "tree", FileKind::Directory }, { "ä", FileKind::Regular } };
    for (const auto& path : { folder.file(""), fn::String(folder.path().string()) }) { // With and without '/'.
        std::vector<std::pair<fn::String, FileKind>> found;
        for (const auto& entry : fn::DirectoryIterator(path)) {
            found.emplace_back(entry.name, entry.kind);
            EXPECT_EQ(entry.path, folder.file(entry.name));
        }
        EXPECT_EQ(found, expected);
    }
}

} // namespace
