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

using fn::StreamReader;

std::string pattern(std::size_t size)
{
    std::string result(size, '\0');
    for (std::size_t i = 0; i < size; ++i) result[i] = static_cast<char>('a' + i * i % 23);
    return result;
}

TEST(FileDescriptor, OpensAsAskedForThisProcessAlone)
{
    const test::TemporaryFolder folder;
    const auto path = folder.file("file");
    const auto mask = ::umask(0);
    auto writer = fn::FileDescriptor::write(path, 0600);
    ::umask(mask);
    struct stat status;
    ASSERT_EQ(::fstat(writer.get(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    EXPECT_TRUE(::fcntl(writer.get(), F_GETFD) & FD_CLOEXEC);
    fn::FileOutputStream(std::move(writer)).write("a long content");
    EXPECT_FALSE(writer);

    fn::FileDescriptor::write(path, 0600).close();
    EXPECT_EQ(test::readFile(path), "");
    const auto reader = fn::FileDescriptor::read(path);
    EXPECT_TRUE(::fcntl(reader.get(), F_GETFD) & FD_CLOEXEC);
    EXPECT_THROW(fn::FileDescriptor::read(folder.file("none")), fn::FileException);
    EXPECT_THROW(fn::FileDescriptor::write(folder.file("none/file"), 0600), fn::FileException);
}

TEST(FileDescriptor, IsClosedOnceByItsOwner)
{
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    fn::FileDescriptor first(ends[0]);
    const fn::FileDescriptor other(ends[1]);
    fn::FileDescriptor second(std::move(first));
    EXPECT_EQ(first.get(), -1);
    second = fn::FileDescriptor(::dup(ends[1]));
    EXPECT_EQ(::fcntl(ends[0], F_GETFD), -1);
    second.close();
    second.close();
    EXPECT_THROW(second.sync(), fn::FileException);
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
    const auto writingThread = ::pthread_self();

    std::string received;
    std::jthread reader([&] {
        fn::FileInputStream stream { fn::FileDescriptor(ends[0]) };
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
    {
        fn::FileOutputStream stream { fn::FileDescriptor(ends[1]) };
        stream.write(content);
    }
    reader.join();
    EXPECT_EQ(received, content);
    ::sigaction(SIGUSR1, &previous, nullptr);
}

TEST(FileStreams, ReportAFullDiskWithItsPath)
{
    fn::FileOutputStream file(fn::FileDescriptor::write("/dev/full", 0600));
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
    auto expected = content;
    const auto dropped = std::erase(expected, 'a');
    expected += std::to_string(dropped);
    for (const std::size_t bufferBytes : { 0, 1, 7, 100, 5000 }) {
        for (const std::size_t step : { 1, 6, 7, 8, 99, 1000 }) {
            fn::ByteArray bytes;
            fn::ByteArrayOutputStream target(bytes);
            fn::BufferedOutputStream buffered(target, bufferBytes);
            WithoutA transform;
            fn::TransformOutputStream stream(buffered, transform);
            for (std::size_t i = 0; i < content.size(); i += step) stream.write(content.substr(i, step));
            stream.close(true); // Reaches the array without a further call.
            stream.close(true);
            EXPECT_EQ(bytes.view(), expected) << bufferBytes << ", " << step;
            EXPECT_THROW(stream.write("x"), fn::IOException);

            fn::MemoryInputStream source(content.data(), content.size());
            fn::BufferedInputStream input(source, bufferBytes);
            std::string piece(step, '\0');
            for (std::size_t i = 0; i < content.size(); i += step) {
                piece.resize(StreamReader::tryRead(input, piece.data(), step));
                EXPECT_EQ(piece, content.substr(i, step)) << bufferBytes << ", " << step;
                EXPECT_EQ(input.position(), i + piece.size());
                EXPECT_EQ(input.remaining(), content.size() - i - piece.size());
            }
            EXPECT_EQ(input.read(piece.data(), 1), 0u);
        }
    }
}

TEST(BufferedOutputStream, DoesNotCompleteADocumentWhileUnwinding)
{
    fn::ByteArray bytes;
    fn::ByteArrayOutputStream target(bytes);
    {
        fn::BufferedOutputStream buffered(target, 8);
        buffered.write("12345678");
        buffered.write("9");
    }
    target.flush();
    EXPECT_EQ(bytes.view(), "12345678");
}

TEST(BufferedOutputStream, FlushesTheStreamsBelowOnlyWhereAsked)
{
    for (const bool flushAll : { false, true }) {
        fn::ByteArray bytes;
        fn::ByteArrayOutputStream target(bytes);
        fn::BufferedOutputStream below(target, 100);
        fn::BufferedOutputStream buffered(below, 10);
        buffered.write("123456789");
        buffered.close(flushAll);
        EXPECT_EQ(bytes.view(), flushAll ? "123456789" : "");
        EXPECT_THROW(buffered.write("x"), fn::IOException);
        below.flush();
        EXPECT_EQ(bytes.view(), "123456789");
    }
}

TEST(StreamReader, ReadsEverythingUpToItsLimit)
{
    const auto content = pattern(50'000);
    for (const std::size_t limit : { 0, 50'000, 49'999 }) {
        fn::MemoryInputStream stream(content.data(), content.size());
        fn::ByteArray bytes("{");
        if (limit == 49'999) {
            EXPECT_THROW(StreamReader::readEverything(stream, bytes, limit), fn::RangeException);
        } else {
            StreamReader::readEverything(stream, bytes, limit);
            EXPECT_EQ(bytes.view(), "{" + content);
        }
    }
}

TEST(StreamReader, SplitsLinesAtEitherLineEnd)
{
    const std::string_view text = "one\r\n\ntw\ro\r\r\n\r\nlast";
    fn::MemoryInputStream stream(text.data(), text.size());
    std::vector<fn::String> lines;
    for (fn::String line; StreamReader::readLine(stream, line, 5);) lines.push_back(line);
    EXPECT_EQ(lines, (std::vector<fn::String> { "one", "", "tw\ro\r", "", "last" }));

    const std::string_view long_ = "123456\n";
    for (const std::size_t limit : { 5, 6 }) {
        fn::MemoryInputStream source(long_.data(), long_.size());
        fn::String line;
        if (limit == 5)
            EXPECT_THROW(StreamReader::readLine(source, line, limit), fn::RangeException);
        else
            EXPECT_TRUE(StreamReader::readLine(source, line, limit));
    }
}

} // namespace
