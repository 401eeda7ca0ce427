// What can break here: a connection lost or announced twice, strangers let in, another's endpoint removed.
#include "base/exceptions.h"
#include "pipe_pair.h"
#include "platform/pipe_path.h"
#include "support/forked_child.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using fn::uv::Loop;
using fn::uv::PipeStream;
using fn::uv::Status;
using test::PipePtr;
using test::runUntil;
using testing::HasSubstr;

const fn::String name = R"(\\.\pipe\meeting point)";

struct PipeConnection : testing::Test {
    test::TemporaryFolder folder;
    platform::ScopedPipeFolder pipes { folder.path().string() };
    Loop loop;
    std::vector<PipePtr> accepted;
    std::vector<test::Inbox> heard { 500 };

    PipePtr makePipe() { return fn::makeAuto<PipeStream>(loop); }

    PipePtr listen()
    {
        auto listener = makePipe();
        listener->bind(name);
        listener->listen(128, [this, listener = listener.get()](const Status& status) {
            status.throwOnError();
            accepted.push_back(makePipe());
            accepted.back()->accept(*listener);
            heard.at(accepted.size() - 1).readFrom(*accepted.back());
        });
        return listener;
    }

    /// How connecting ends.
    int connect(const PipePtr& pipe, const fn::String& to = name)
    {
        std::optional<int> code;
        pipe->connect(to, [&](const Status& status) {
            code = status.code();
            EXPECT_TRUE(status.ok() || status.what().contains(to.substring(9))) << status.what();
        });
        EXPECT_FALSE(code) << "Not inside of the call.";
        EXPECT_TRUE(runUntil(loop, [&] { return code.has_value(); }));
        return code.value_or(1);
    }
};

TEST_F(PipeConnection, FiveHundredAtOnceAllComeThroughAShortQueueWithWhatTheyHadWrittenBefore)
{
    const auto listener = listen();
    EXPECT_EQ(fs::status(listener->nativePath().view()).permissions(), fs::perms(0600));
    std::vector<PipePtr> clients;
    std::vector<std::string> expected, received;
    for (int i = 0; i < 500; ++i) {
        clients.push_back(makePipe());
        clients.back()->connect(name, [pipe = clients.back().get()](const Status& status) {
            EXPECT_TRUE(status.ok()) << status.what();
            pipe->closeGently(fn::Duration::seconds(20));
        });
        expected.push_back(std::to_string(i));
        clients.back()->write(fn::ByteArray(expected.back()));
    }
    EXPECT_TRUE(runUntil(loop, [&] { return std::ranges::all_of(heard, &test::Inbox::end); }));
    for (const auto& inbox : heard) received.push_back(inbox.text);
    EXPECT_THAT(received, testing::UnorderedElementsAreArray(expected));
}

TEST_F(PipeConnection, WhatIsWrongWithAnEndpointReachesTheCallbackAndTheSameStreamMayTryAgain)
{
    const auto client = makePipe();
    EXPECT_EQ(connect(client), -ENOENT);
    makePipe()->bind(name); // Gone again.
    EXPECT_EQ(connect(client), -ENOENT);
    auto deaf = makePipe();
    deaf->bind(name);
    std::optional<int> written;
    client->write(fn::ByteArray("too early"), [&](const Status& status) { written = status.code(); });
    EXPECT_EQ(connect(client), -ECONNREFUSED);
    EXPECT_TRUE(runUntil(loop, [&] { return written.has_value(); }));
    EXPECT_EQ(written, -ECONNREFUSED);
    EXPECT_EQ(connect(client, R"(\\.\pipe\../elsewhere)"), -EINVAL);
    const fn::String longName = R"(\\.\pipe\)" + fn::String(std::string(108, 'x'));
    EXPECT_EQ(connect(client, longName), -ENAMETOOLONG);
    EXPECT_THROW(makePipe()->bind(longName), fn::IOException);
    deaf->listen(1, [](const Status&) {});
    EXPECT_EQ(connect(client), 0);
}

TEST_F(PipeConnection, AnEndpointIsRemovedByItsOwnerAloneAndTakenFromNobody)
{
    auto first = listen();
    const auto path = first->nativePath();
    EXPECT_THROW(makePipe()->bind(name), fn::IOException);
    fs::rename(path.view(), (path + ".aside").view());
    auto second = listen();
    first->close(); // Its path is another's by now, and its own socket has been moved away.
    EXPECT_TRUE(fs::exists((path + ".aside").view()));
    EXPECT_EQ(connect(makePipe()), 0);
    second.reset();
    EXPECT_FALSE(fs::exists(path.view()));
}

TEST_F(PipeConnection, AStrangerIsRefusedBeforeAnybodyHearsOfHim)
{
    if (::geteuid() != 0) GTEST_SKIP() << "needs root, to become somebody else";
    const test::LogCapture log(2);
    const auto listener = listen();
    const fs::path path = listener->nativePath().view();
    for (auto parent = path.parent_path(); parent != "/tmp" && parent != "/"; parent = parent.parent_path())
        fs::permissions(parent, fs::perms::group_exec | fs::perms::others_exec, fs::perm_options::add);
    fs::permissions(path, fs::perms::all);
    test::ForkedChild child([address = platform::socketAddress(listener->nativePath())] {
        const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
        char byte;
        return ::setresuid(65534, 65534, 65534) == 0
            && ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0
            && ::recv(socket, &byte, 1, 0) == 0; // Closed without a word.
    });
    EXPECT_TRUE(test::spinUntil(loop, [&] { return !child.isRunning(); }));
    EXPECT_TRUE(child.succeeds());
    EXPECT_TRUE(accepted.empty());
    EXPECT_THAT(log.lines(), testing::ElementsAre(HasSubstr("65534")));
    EXPECT_EQ(connect(makePipe()), 0); // Ourselves, as before.
    EXPECT_TRUE(runUntil(loop, [&] { return accepted.size() == 1; }));
}

} // namespace
