// What can break here: bytes lost or doubled where a system call does less than asked or a buffer is cut, an error that
// nobody hears of, a descriptor that a child process inherits.
#include "foundation/exceptions.h"
#include "foundation/io/buffered_input_stream.h"
#include "foundation/io/buffered_output_stream.h"
#include "foundation/io/byte_array_output_stream.h"
#include "foundation/io/file_input_stream.h"
#include "foundation/io/file_output_stream.h"
#include "foundation/io/memory_input_stream.h"
#include "foundation/io/stream_reader.h"
#include "foundation/io/transform_output_stream.h"
#include "support/temporary_folder.h"
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using fn::FileDescriptor;
using fn::StreamReader;

std::string pattern(std::size_t size)
{
    std::string result(size, '\0');
    for (std::size_t i = 0; i < size; ++i) result[i] = static_cast<char>('a' + i * i % 23);
    return result;
}

TEST(FileDescriptor, IsOpenedAsAskedForThisProcessAloneAndClosedOnceByItsOwner)
{
    const test::TemporaryFolder folder;
    const auto path = folder.file("file");
    const auto mask = ::umask(0);
    auto writer = FileDescriptor::write(path, 0600);
    ::umask(mask);
    struct stat status;
    ASSERT_EQ(::fstat(writer.get(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    fn::FileOutputStream(FileDescriptor(::dup(writer.get()))).write("x");
    EXPECT_EQ(test::readFile(path), "x");
    FileDescriptor second = FileDescriptor::write(path, 0600);
    EXPECT_EQ(test::readFile(path), "") << "It begins anew.";
    const auto first = writer.get();
    second = std::move(writer);
    EXPECT_FALSE(writer);
    EXPECT_EQ(second.get(), first);
    second = FileDescriptor::read(path);
    EXPECT_EQ(::fcntl(first, F_GETFD), -1);
    EXPECT_TRUE(::fcntl(second.get(), F_GETFD) & FD_CLOEXEC);
    second.close();
    second.close();
    EXPECT_THROW(second.sync(), fn::FileException);
    EXPECT_THROW(FileDescriptor::read(folder.file("none")), fn::FileException);
    EXPECT_THROW(FileDescriptor::write(folder.file("none/file"), 0600), fn::FileException);
}

// A signal during a write to a full pipe makes it return early, with or without some bytes written.
TEST(FileStreams, LoseNothingToSignalsAndShortCounts)
{
    struct sigaction action { };
    struct sigaction previous { };
    action.sa_handler = [](int) {}; // Without SA_RESTART: calls return.
    ASSERT_EQ(::sigaction(SIGUSR1, &action, &previous), 0);
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const auto content = pattern(2'000'000);
    std::string received;
    std::jthread reader([&, writingThread = ::pthread_self()] {
        fn::FileInputStream stream { FileDescriptor(ends[0]) };
        std::string chunk(30'000, '\0');
        while (const auto count = StreamReader::tryRead(stream, chunk.data(), chunk.size())) {
            received.append(chunk, 0, count);
            // More than one: those after the first find it waiting with nothing written.
            for (int i = 0; i < 50; ++i) {
                ::pthread_kill(writingThread, SIGUSR1);
                std::this_thread::yield();
            }
        }
    });
    fn::FileOutputStream(FileDescriptor(ends[1])).write(content);
    reader.join();
    EXPECT_EQ(received, content);
    ::sigaction(SIGUSR1, &previous, nullptr);
}

TEST(FileStreams, ReportAFullDiskWithItsPath)
{
    fn::FileOutputStream file(FileDescriptor::write("/dev/full", 0600));
    fn::BufferedOutputStream buffered(file, 100);
    buffered.write("still in the buffer");
    try {
        buffered.close();
        FAIL() << "The bytes cannot have been written";
    } catch (const fn::FileException& e) {
        EXPECT_EQ(*e.find<fn::PathInfo>(), "/dev/full");
        EXPECT_EQ(*e.find<fn::ErrnoInfo>(), ENOSPC);
    }
}

// Drops every 'a' and writes the number of them at the end.
class WithoutA final : public fn::Transform {
public:
    void transform(const std::uint8_t* data, std::size_t size, fn::OutputStream& target) override
    {
        for (std::size_t i = 0; i < size; ++i) {
            if (data[i] == 'a')
                ++_dropped;
            else
                target.writeByte(data[i]);
        }
    }
    void finish(fn::OutputStream& target) override { target.write(std::to_string(_dropped)); }

private:
    int _dropped = 0;
};

TEST(BufferedStreams, CarryTheSameBytesWhereverTheyAreCut)
{
    const auto content = pattern(1000);
    auto expected = "head" + content;
    const auto dropped = std::erase(expected, 'a') - 1; // The head's is there before.
    expected = "head" + expected.substr(3) + std::to_string(dropped);
    for (const std::size_t bufferBytes : { 0, 1, 7, 100, 5000 }) {
        for (const std::size_t step : { 1, 6, 7, 8, 99, 1000 }) {
            SCOPED_TRACE(fmt::format("buffer {}, step {}", bufferBytes, step));
            fn::ByteArray bytes("head");
            fn::ByteArrayOutputStream target(bytes);
            fn::BufferedOutputStream buffered(target, bufferBytes);
            WithoutA transform;
            fn::TransformOutputStream stream(buffered, transform);
            for (std::size_t i = 0; i < content.size(); i += step) {
                const auto piece = content.substr(i, step);
                if (i % 2)
                    stream.write(piece);
                else
                    stream.writeShared(fn::ByteArray(piece));
            }
            stream.close(true); // Reaches the array without a further call.
            stream.close(true);
            EXPECT_EQ(bytes.view(), expected);
            EXPECT_EQ(target.position(), expected.size());
            EXPECT_THROW(stream.write("x"), fn::IOException);
            const auto sent = bytes;
            target.write("more"); // The content is shared now: it must not be written into.
            target.flush();
            EXPECT_EQ(sent.view(), expected);

            fn::MemoryInputStream source(content.data(), content.size());
            fn::BufferedInputStream input(source, bufferBytes);
            std::string piece;
            for (std::size_t i = 0; i < content.size(); i += step) {
                piece.resize(step);
                piece.resize(StreamReader::tryRead(input, piece.data(), step));
                EXPECT_EQ(piece, content.substr(i, step));
                EXPECT_EQ(input.position(), i + piece.size());
                EXPECT_EQ(input.remaining(), content.size() - i - piece.size());
            }
            EXPECT_EQ(input.read(piece.data(), 1), 0u);
        }
    }
}

TEST(StreamReader, ReadsEverythingAndLinesOfEitherEndUpToALimit)
{
    const std::string_view text = "one\r\n\ntw\ro\r\r\n\r\nlast\n123456\n";
    const auto streamOf = [](std::string_view content) {
        return fn::MemoryInputStream(content.data(), content.size());
    };
    for (const std::size_t limit : { std::size_t(0), text.size() }) {
        auto stream = streamOf(text);
        fn::ByteArray bytes("{");
        StreamReader::readEverything(stream, bytes, limit);
        EXPECT_EQ(bytes.view(), "{" + std::string(text));
    }
    auto tooMuch = streamOf(text);
    fn::ByteArray bytes;
    EXPECT_THROW(StreamReader::readEverything(tooMuch, bytes, text.size() - 1), fn::RangeException);

    auto stream = streamOf(text);
    fn::String line;
    for (const auto* expected : { "one", "", "tw\ro\r", "", "last" }) {
        EXPECT_TRUE(StreamReader::readLine(stream, line, 5));
        EXPECT_EQ(line, expected);
    }
    EXPECT_THROW(StreamReader::readLine(stream, line, 5), fn::RangeException);
    auto last = streamOf("123456");
    EXPECT_TRUE(StreamReader::readLine(last, line, 6));
    EXPECT_EQ(line, "123456");
    EXPECT_FALSE(StreamReader::readLine(last, line, 6));
}

} // namespace
