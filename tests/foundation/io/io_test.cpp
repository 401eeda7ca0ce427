// What can break here: bytes lost where a call does less than asked, an error without its path, a link followed while removing.
#include "base/exceptions.h"
#include "foundation/io/buffered_input_stream.h"
#include "foundation/io/buffered_output_stream.h"
#include "foundation/io/byte_array_output_stream.h"
#include "foundation/io/directory_iterator.h"
#include "foundation/io/file.h"
#include "foundation/io/file_input_stream.h"
#include "foundation/io/file_output_stream.h"
#include "foundation/io/memory_input_stream.h"
#include "foundation/io/stream_reader.h"
#include "support/temporary_folder.h"
#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using fn::File;
using fn::FileDescriptor;
using fn::StreamReader;

std::string pattern(std::size_t size)
{
    std::string result(size, '\0');
    for (std::size_t i = 0; i < size; ++i) result[i] = static_cast<char>('a' + i * i % 23);
    return result;
}

TEST(BufferedStreams, CarryTheSameBytesWhereverTheyAreCut)
{
    const auto content = pattern(1000), expected = "head" + content;
    for (const std::size_t bufferBytes : { 0, 1, 7, 100, 5000 }) {
        for (const std::size_t step : { 1, 6, 7, 8, 99, 1000 }) {
            SCOPED_TRACE(fmt::format("buffer {}, step {}", bufferBytes, step));
            fn::ByteArray bytes("head");
            fn::ByteArrayOutputStream target(bytes);
            fn::BufferedOutputStream stream(target, bufferBytes);
            for (std::size_t i = 0; i < content.size(); i += step) {
                const auto piece = content.substr(i, step);
                if (i % 2)
                    stream.write(piece);
                else
                    stream.writeShared(fn::ByteArray(piece));
            }
            stream.close(true); // Reaches the array without a further call.
            EXPECT_EQ(bytes.view(), expected);
            EXPECT_EQ(target.position(), expected.size());
            EXPECT_THROW(stream.write("x"), fn::IOException);
            const auto sent = bytes;
            target.write("more"); // The content is shared now: it must not be written into.
            target.flush();
            EXPECT_EQ(sent.view(), expected);

            fn::MemoryInputStream source(content.data(), content.size());
            fn::BufferedInputStream input(source, bufferBytes);
            std::string received, piece(step, '\0');
            while (const auto count = StreamReader::tryRead(input, piece.data(), step)) {
                received.append(piece, 0, count);
                EXPECT_EQ(input.position(), received.size());
                EXPECT_EQ(input.remaining(), content.size() - received.size());
            }
            EXPECT_EQ(received, content);
        }
    }
}

TEST(StreamReader, ReadsEverythingAndLinesOfEitherEndUpToALimit)
{
    const auto streamOf = [](std::string_view content) {
        return fn::MemoryInputStream(content.data(), content.size());
    };
    const auto linesOf = [&](std::string_view text, std::size_t limit) {
        auto stream = streamOf(text);
        std::vector<fn::String> lines(1);
        while (StreamReader::readLine(stream, lines.back(), limit)) lines.emplace_back();
        return lines;
    };
    const std::vector<fn::String> expected { "one", "", "tw\ro\r", "", "last", "" };
    EXPECT_EQ(linesOf("one\r\n\ntw\ro\r\r\n\r\nlast", 5), expected);
    EXPECT_THROW(linesOf("x\n123456\n", 5), fn::RangeException);
    auto tooMuch = streamOf("1234567");
    fn::ByteArray none;
    EXPECT_THROW(StreamReader::readEverything(tooMuch, none, 6), fn::RangeException);
    for (const std::size_t limit : { 0, 6 }) {
        auto stream = streamOf("123456");
        fn::ByteArray bytes("{");
        StreamReader::readEverything(stream, bytes, limit);
        EXPECT_EQ(bytes.view(), "{123456");
    }
}

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
    const fn::String cut = file + std::string_view("\0.old", 5); // Must not stand for "file".
    EXPECT_EQ(errorOf(tooLong, [&] { File(tooLong).exists(); }), ENAMETOOLONG);
    EXPECT_EQ(errorOf(cut, [&] { File(cut).remove(false); }), EINVAL);
    EXPECT_EQ(errorOf(cut, [&] { fn::DirectoryIterator iterator(cut); }), EINVAL);
    EXPECT_EQ(errorOf(file, [&] { fn::DirectoryIterator iterator(file); }), ENOTDIR);
    EXPECT_EQ(errorOf(none, [&] { File(none).info(); }), ENOENT);
    for (const bool recursive : { false, true })
        EXPECT_EQ(errorOf(none, [&] { File(none).remove(recursive); }), ENOENT) << recursive;
}

TEST_F(Files, AreWrittenRemovedAndNothingBehindALinkAndMovedOverAnother)
{
    fn::FileOutputStream(FileDescriptor::write(file, 0600)).write("x");
    EXPECT_EQ(errorOf(tree, [&] { File(tree).remove(false); }), ENOTEMPTY);
    EXPECT_EQ(errorOf(file, [&] { File(file).moveTo(tree); }), EISDIR);
    File(tree).remove(true);
    const auto old = folder.file("dangling");
    File(file).moveTo(old); // Over what is there.
    EXPECT_FALSE(File(file).exists());
    EXPECT_EQ(test::readFile(old), "x");
    File(folder.file("link")).remove(false);
    File(old).remove(true);
    EXPECT_TRUE(fs::is_empty(folder.path()));
}

} // namespace
