// What can break here: a command lost, doubled or out of order, a sender that never hears the end or hears it twice, an
// endpoint that is another's removed or not put back, a peer that holds us up or brings us down, handlers that end the server.
#include "core/ipc_services/command_ipc.h"
#include "core/services/fraction.h"
#include "foundation/system/environment.h"
#include "foundation/time/clock.h"
#include "foundation/uv/loop.h"
#include "platform/pipe_path.h"
#include "support/log_capture.h"
#include "support/peer.h"
#include "support/run_until.h"
#include "support/temporary_folder.h"
#include "support/worker.h"
#include <deque>
#include <gmock/gmock.h>
#include <set>

namespace {

namespace fs = std::filesystem;
using core::CommandIPC;
using fn::Value;
using fn::uv::Loop;
using test::Peer;
using test::runTurns;
using test::runUntil;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string fileName = "skyfold-command-ipc." + fn::Environment::userName().toStdString();
const fn::String pipeName = R"(\\.\pipe\)" + fileName;

/// A server with the commands that it has signalled.
struct Server {
    explicit Server(Loop& ofTest) : loop(ofTest)
    {
        const auto take = [this](const Value& command) { commands.push_back(command.toString().toStdString()); };
        ipc->onCommand().connect(take).detach();
    }
    void bind()
    {
        loop.post([this] { ipc->bind(); });
        runTurns(loop, 2);
    }

    Loop& loop;
    fn::AutoPtr<CommandIPC> ipc = fn::makeAuto<CommandIPC>();
    std::vector<std::string> commands;
};

struct CommandPipe : testing::Test {
    test::TemporaryFolder folder;
    platform::ScopedPipeFolder pipes { folder.path().string() };
    fn::ManualClock clock;
    Loop loop { clock };
    Server server { loop };
    int done = 0;
    test::LogCapture log { 2 };

    void send(const Value& command)
    {
        loop.post([this, command] {
            const int before = done;
            CommandIPC::send(command, [this] { ++done; });
            EXPECT_EQ(done, before); // Not inside of the call.
        });
    }
    bool awaitDone(int count)
    {
        return runUntil(loop, [&] { return done == count; });
    }
    /// Sends, and awaits the end and what the server makes of it.
    void sendAndAwait(const Value& command)
    {
        send(command);
        EXPECT_TRUE(awaitDone(done + 1));
        runTurns(loop);
    }
    bool awaitCommands(std::size_t count)
    {
        return runUntil(loop, [&] { return server.commands.size() == count; });
    }
    std::set<std::string> entries() const
    {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder.path())) names.insert(entry.path().filename());
        return names;
    }
};

TEST_F(CommandPipe, ASenderHandsOverOneCommandAndHearsTheEndOnce)
{
    constexpr unsigned header = 5; // Of bytes as long as these.
    const auto largest = static_cast<unsigned>(CommandIPC::maxCommandBytes) - header;
    sendAndAwait("anybody?");
    server.bind();
    sendAndAwait("open");
    loop.post([] { CommandIPC::send("nobody waits for this", {}); });
    EXPECT_TRUE(awaitCommands(2));
    sendAndAwait(fn::ByteArray(largest));
    EXPECT_TRUE(awaitCommands(3));
    sendAndAwait(fn::ByteArray(largest + 1));
    sendAndAwait(core::Fraction(1, 2)); // Without a form on this wire.
    EXPECT_EQ(done, 5);
    const auto refused = test::outcomeOf(loop, [] { return CommandIPC::send(core::Fraction(1, 2)); }); // Not logged.
    EXPECT_THAT(refused.error(), HasSubstr("Unsupported value type"));
    EXPECT_EQ(server.commands.size(), 3U);
    EXPECT_THAT(
        log.lines(), ElementsAre(HasSubstr("ENOENT"), HasSubstr("A message of"), HasSubstr("Unsupported value type")));
}

TEST_F(CommandPipe, TheLastOfTheServersToStopPutsBackWhatStoodThereFirst)
{
    const auto first = folder.path() / fileName;
    Server later(loop);
    fs::create_symlink("nowhere", first);
    for (auto* const early : { &server, &later }) {
        auto* const late = early == &server ? &later : &server;
        server.bind();
        later.bind();
        early->ipc->stop();
        sendAndAwait("open");
        EXPECT_THAT(std::exchange(late->commands, {}), ElementsAre("open"));
        late->ipc->stop();
        early->ipc->stop(); // Once more changes nothing.
        EXPECT_THAT(entries(), ElementsAre(fileName));
        EXPECT_TRUE(fs::is_symlink(first));
    }
}

TEST_F(CommandPipe, WhoFindsNoRoomWaitsAndNothingIsLost)
{
    server.bind();
    std::deque<Peer> peers;
    const auto fill = [&] { // Fewer at a time than may wait.
        for (std::size_t i = 0; i < CommandIPC::maxConnections; ++i) {
            peers.emplace_back(loop, pipeName);
            if (i % 64 == 63) runTurns(loop);
        }
    };
    const auto closed = [&] { return std::ranges::count_if(peers, &Peer::isEnded); };
    fill();
    for (const auto* command : { "first", "second", "third" }) send(command);
    EXPECT_TRUE(awaitDone(3));
    runTurns(loop);
    EXPECT_THAT(server.commands, ElementsAre());
    peers.front().send("spoken"); // Silent no more.
    EXPECT_TRUE(awaitCommands(1));
    peers.pop_back(); // Room for one, who makes room for the next.
    EXPECT_TRUE(awaitCommands(4));
    EXPECT_THAT(server.commands, ElementsAre("spoken", "first", "second", "third"));
    EXPECT_EQ(closed(), 0);

    Peer one(loop, pipeName); // Who finds room, and one more who does not, until somebody was silent for too long.
    runTurns(loop);
    send("fourth");
    runTurns(loop);
    EXPECT_EQ(server.commands.size(), 4U);
    clock.advance(CommandIPC::crowdedSilenceLimit);
    EXPECT_TRUE(awaitCommands(5));
    EXPECT_EQ(closed(), 1);

    peers.clear();
    runTurns(loop);
    fill();
    for (const auto* command : { "fifth", "sixth" }) send(command);
    EXPECT_TRUE(awaitDone(6));
    server.ipc->stop();
    EXPECT_THAT(std::vector(server.commands.begin() + 5, server.commands.end()), ElementsAre("fifth", "sixth"));
}

TEST_F(CommandPipe, ASenderGivesUpInTheEnd)
{
    const auto busy = fn::makeAuto<fn::uv::PipeStream>(loop); // It lets nobody in, and reads nothing.
    busy->bind(pipeName);
    busy->listen(1, [](const fn::uv::Status&) {});
    busy->listenStop();
    send(fn::ByteArray(3U << 20)); // More than the system takes for it.
    runTurns(loop);
    EXPECT_EQ(done, 0);
    clock.advance(CommandIPC::sendLimit);
    EXPECT_TRUE(awaitDone(1));
    runTurns(loop);
    EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("ETIMEDOUT")));
}

} // namespace
