#pragma once
#include "base/auto_ptr.h"
#include "foundation/uv/pipe_stream.h"
#include "support/run_until.h"
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace test {

using PipePtr = fn::AutoPtr<fn::uv::PipeStream>;

/// Collects what arrives.
struct Inbox {
    std::string text;
    std::ptrdiff_t end = 0; ///< The negative count that ended reading.

    void readFrom(fn::uv::PipeStream& stream)
    {
        stream.readStart([this](std::ptrdiff_t count, const std::uint8_t* data) {
            if (count < 0)
                end = count;
            else
                text.append(reinterpret_cast<const char*>(data), static_cast<std::size_t>(count));
        });
    }
};

/// A connected pipe whose other end is a descriptor of the test.
struct PipeAndSocket {
    /// `room` bounds what the kernel takes of one side before the other one reads.
    explicit PipeAndSocket(fn::uv::Loop& loop, int room = 200'000) : pipe(fn::makeAuto<fn::uv::PipeStream>(loop))
    {
        int descriptors[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, descriptors), 0);
        for (const int end : descriptors) ::setsockopt(end, SOL_SOCKET, SO_SNDBUF, &room, sizeof(room));
        pipe->open(descriptors[0]);
        socket = descriptors[1];
    }
    PipeAndSocket(const PipeAndSocket&) = delete;
    ~PipeAndSocket() { hangUp(); }

    void hangUp()
    {
        if (socket >= 0) ::close(std::exchange(socket, -1));
    }

    void send(std::string_view text)
    {
        EXPECT_EQ(::send(socket, text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
    }

    /// All that has arrived; adds to `received`.
    void take()
    {
        char buffer[65536];
        ssize_t count;
        while ((count = ::recv(socket, buffer, sizeof(buffer), 0)) > 0)
            received.append(buffer, static_cast<std::size_t>(count));
        isEnded = count == 0;
    }

    PipePtr pipe;
    int socket = -1;
    std::string received;
    bool isEnded = false; ///< The pipe sends no more.
};

} // namespace test
