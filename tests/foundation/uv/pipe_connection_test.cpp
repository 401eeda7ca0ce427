// What can break here: a connection lost or announced twice, strangers let in, an endpoint left behind or one removed that
// is another's.
#include "foundation/exceptions.h"
#include "foundation/time/clock.h"
#include "pipe_pair.h"
#include "platform/pipe_path.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace {

namespace fs = std::filesystem;
using fn::uv::Loop;
using fn::uv::PipeStream;
using fn::uv::Status;
using test::Inbox;
using test::PipePtr;
using test::runTurns;
using test::runUntil;
using testing::HasSubstr;

const fn::String name = R"(\\.\pipe\meeting point)";

struct PipeConnection : testing::Test {
    test::TemporaryFolder folder;
    platform::ScopedPipeFolder pipes { folder.path().string() };
    Loop loop;
    std::vector<PipePtr> accepted;

    PipePtr makePipe() { return fn::makeAuto<PipeStream>(loop); }

    PipePtr listen(int backlog = 128)
    {
        auto listener = makePipe();
        listener->bind(name);
        listener->listen(backlog, [this, listener = listener.get()](const Status& status) {
            status.throwOnError();
            accepted.push_back(makePipe());
            accepted.back()->accept(*listener);
        });
        return listener;
    }

    /// The status that connecting ends with.
    int connect(const PipePtr& pipe)
    {
        std::optional<int> code;
        pipe->connect(name, [&](const Status& status) { code = status.code(); });
        EXPECT_FALSE(code); // Not inside of the call.
        EXPECT_TRUE(runUntil(loop, [&] { return code.has_value(); }));
        return code.value_or(1);
    }
};

TEST_F(PipeConnection, CarriesBytesBothWaysAlsoThoseWrittenBeforeItStood)
{
    const auto listener = listen();
    struct stat status;
    ASSERT_EQ(::stat(listener->nativePath().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);

    const auto client = makePipe();
    bool connected = false;
    client->connect(name, [&](const Status& outcome) { connected = outcome.ok(); });
    client->write(fn::ByteArray("early"));
    EXPECT_TRUE(runUntil(loop, [&] { return connected && accepted.size() == 1; }));
    Inbox server;
    Inbox answer;
    server.readFrom(*accepted[0]);
    answer.readFrom(*client);
    accepted[0]->write(fn::ByteArray("answer"));
    EXPECT_TRUE(runUntil(loop, [&] { return server.text == "early" && answer.text == "answer"; }));
    client->close();
    EXPECT_TRUE(runUntil(loop, [&] { return server.end != 0; }));
}

TEST_F(PipeConnection, FiveHundredAtOnceAllComeThroughAShortQueue)
{
    const auto listener = listen(128);
    std::vector<PipePtr> clients;
    int connected = 0;
    for (int i = 0; i < 500; ++i) {
        clients.push_back(makePipe());
        clients.back()->connect(name, [&](const Status& status) {
            EXPECT_TRUE(status.ok()) << status.what();
            ++connected;
        });
    }
    EXPECT_TRUE(runUntil(loop, [&] { return connected == 500 && accepted.size() == 500; }));
    runTurns(loop);
    EXPECT_EQ(accepted.size(), 500U);
}

TEST_F(PipeConnection, OneThatWaitsForAFullQueueEndsWithTheEndpointOrWithItsOwnClose)
{
    auto listener = makePipe();
    listener->bind(name);
    std::size_t letIn = 0;
    listener->listen(1, [&](const Status&) { ++letIn; });
    fn::ManualClock clock;
    Loop clients(clock); // The listener's loop does not run.
    std::vector<PipePtr> waiting;
    std::vector<int> codes;
    for (int i = 0; i < 6; ++i) {
        waiting.push_back(fn::makeAuto<PipeStream>(clients));
        waiting.back()->connect(name, [&codes](const Status& status) { codes.push_back(status.code()); });
    }
    runTurns(clients);
    const auto full = codes.size();
    EXPECT_LT(full, 5U);
    waiting.back()->close();
    listener->listenEnd(); // Who is in the queue is let in, nobody else.
    clock.advance(fn::Duration::milliseconds(1));
    runTurns(clients);
    EXPECT_EQ(codes.size(), 5U);
    EXPECT_EQ(codes.back(), -ECONNREFUSED);
    listener->listenPending();
    EXPECT_EQ(letIn, full);
}

TEST_F(PipeConnection, WhatIsWrongWithAnEndpointReachesTheCallback)
{
    EXPECT_EQ(connect(makePipe()), -ENOENT);
    const auto path = platform::pipePath(name);
    makePipe()->bind(name); // Bound but deaf, and gone again.
    EXPECT_FALSE(fs::exists(path.view()));
    auto deaf = makePipe();
    deaf->bind(name);
    const auto client = makePipe();
    std::optional<int> written;
    client->write(fn::ByteArray("too early"), [&](const Status& status) { written = status.code(); });
    EXPECT_EQ(connect(client), -ECONNREFUSED);
    EXPECT_TRUE(runUntil(loop, [&] { return written.has_value(); }));
    EXPECT_EQ(written, -ECONNREFUSED);
    deaf->listen(1, [](const Status&) {});
    EXPECT_EQ(connect(client), 0); // The same stream may try again.

    std::optional<Status> refused;
    const auto lost = makePipe();
    lost->connect(R"(\\.\pipe\../elsewhere)", [&](const Status& status) { refused = status; });
    EXPECT_TRUE(runUntil(loop, [&] { return refused.has_value(); }));
    EXPECT_EQ(refused->code(), -EINVAL);
    EXPECT_THAT(refused->what().toStdString(), HasSubstr("elsewhere"));
    const fn::String longName = R"(\\.\pipe\)" + fn::String(std::string(108, 'x'));
    EXPECT_THROW(makePipe()->bind(longName), fn::IOException);
    refused.reset();
    lost->connect(longName, [&](const Status& status) { refused = status; });
    EXPECT_TRUE(runUntil(loop, [&] { return refused.has_value(); }));
    EXPECT_EQ(refused->code(), -ENAMETOOLONG);
}

TEST_F(PipeConnection, AnEndpointIsRemovedByItsOwnerAloneAndTakenFromNobody)
{
    auto first = listen();
    const auto path = first->nativePath();
    EXPECT_THROW(makePipe()->bind(name), fn::IOException);
    EXPECT_TRUE(fs::exists(path.view()));

    fs::rename(path.view(), (path + ".aside").view());
    auto second = listen();
    first->close(); // Its path is another's by now, and its own socket has been moved away.
    EXPECT_TRUE(fs::exists(path.view()));
    EXPECT_TRUE(fs::exists((path + ".aside").view()));
    EXPECT_EQ(connect(makePipe()), 0);
    second.reset();
    EXPECT_FALSE(fs::exists(path.view()));
}

TEST_F(PipeConnection, AListenersCallbackMayCloseItOrLeaveConnectionsUntaken)
{
    auto listener = makePipe();
    listener->bind(name);
    int calls = 0;
    listener->listen(8, [&](const Status&) {
        if (++calls == 2) listener.reset();
    });
    const auto one = makePipe();
    EXPECT_EQ(connect(one), 0);
    EXPECT_TRUE(runUntil(loop, [&] { return calls == 1; }));
    accepted.push_back(makePipe());
    accepted.back()->accept(*listener); // Later than announced.
    EXPECT_THROW(makePipe()->accept(*listener), fn::IOException);
    Inbox inbox;
    inbox.readFrom(*accepted.back());
    one->write(fn::ByteArray("hello"));
    EXPECT_TRUE(runUntil(loop, [&] { return inbox.text == "hello"; }));

    const auto two = makePipe();
    const auto three = makePipe();
    EXPECT_EQ(connect(two), 0);
    Inbox left;
    left.readFrom(*two);
    EXPECT_TRUE(runUntil(loop, [&] { return left.end != 0; })); // Closed with the listener that held it.
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(connect(three), -ENOENT);
}

TEST_F(PipeConnection, AStrangerIsRefusedBeforeAnybodyHearsOfHim)
{
    if (::geteuid() != 0) GTEST_SKIP() << "needs root, to become somebody else";
    const test::LogCapture log(2);
    const auto listener = listen();
    const auto path = listener->nativePath();
    for (auto parent = fs::path(path.view()).parent_path(); parent != "/tmp" && parent != "/";
         parent = parent.parent_path())
        fs::permissions(parent, fs::perms::group_exec | fs::perms::others_exec, fs::perm_options::add);
    fs::permissions(path.view(), fs::perms::all);
    const auto address = platform::socketAddress(path);
    const auto child = ::fork();
    if (child == 0) { // Nothing but system calls here.
        const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
        char byte;
        if (::setresuid(65534, 65534, 65534) != 0) ::_exit(2);
        if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) ::_exit(errno);
        ::_exit(::recv(socket, &byte, 1, 0) == 0 ? 0 : 4); // Closed without a word.
    }
    int status = 0;
    EXPECT_TRUE(runUntil(loop, [&] { return ::waitpid(child, &status, WNOHANG) == child; }));
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(accepted.empty());
    EXPECT_THAT(log.lines(), testing::ElementsAre(HasSubstr("65534")));
    EXPECT_EQ(connect(makePipe()), 0); // Ourselves, as before.
    EXPECT_TRUE(runUntil(loop, [&] { return accepted.size() == 1; }));
}

} // namespace
