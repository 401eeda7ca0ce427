// What can break here: a command lost, doubled or out of order, a sender that never hears the end or hears it twice, an
// endpoint that is another's removed or not put back, a peer that holds us up or brings us down, handlers that end the server.
#include "core/command_ipc.h"
#include "core/fraction.h"
#include "foundation/exceptions.h"
#include "foundation/system/environment.h"
#include "foundation/time/clock.h"
#include "foundation/uv/loop.h"
#include "platform/pipe_path.h"
#include "support/expectations.h"
#include "support/log_capture.h"
#include "support/peer.h"
#include "support/run_until.h"
#include "support/temporary_folder.h"
#include <deque>
#include <future>
#include <gmock/gmock.h>

namespace {

namespace fs = std::filesystem;
using core::CommandIPC;
using fn::Duration;
using fn::Value;
using fn::uv::Loop;
using test::Peer;
using test::runTurns;
using test::runUntil;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

const std::string fileName = "skyfold-command-ipc." + fn::Environment::userName().toStdString();
const fn::String pipeName = R"(\\.\pipe\)" + fileName;

/// A server with the commands that it has signalled.
class Server {
public:
    explicit Server(Loop& loop) : _loop(loop)
    {
        ipc->onCommand()
            .connect([this](const Value& command) {
                commands.push_back(command.toString().toStdString());
                if (onCommand) onCommand();
            })
            .detach();
    }

    void bind()
    {
        std::packaged_task<void()> task([&] { ipc->bind(); });
        _loop.post([&] { task(); });
        runTurns(_loop, 2);
        task.get_future().get(); // Throws what that has thrown.
    }

    fn::AutoPtr<CommandIPC> ipc = fn::makeAuto<CommandIPC>();
    std::vector<std::string> commands;
    std::function<void()> onCommand;

private:
    Loop& _loop;
};

struct CommandPipe : testing::Test {
    test::TemporaryFolder folder;
    platform::ScopedPipeFolder pipes { folder.path().string() };
    fn::ManualClock clock;
    Loop loop { clock };
    Server server { loop };
    int done = 0;
    test::LogCapture log { 2 };

    void send(const Value& command, Loop& where)
    {
        where.post([this, command] {
            const int before = done;
            CommandIPC::send(command, [this] { ++done; });
            EXPECT_EQ(done, before); // Not inside of the call.
        });
    }

    /// Sends, and awaits the end and what the server makes of it.
    void sendAndAwait(const Value& command)
    {
        send(command, loop);
        EXPECT_TRUE(runUntil(loop, [this, end = done + 1] { return done == end; }));
        runTurns(loop);
    }

    std::vector<std::string> entries() const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder.path())) names.push_back(entry.path().filename());
        std::ranges::sort(names);
        return names;
    }
};

// --- Commands

TEST_F(CommandPipe, BringsAllCommandsOfAClientInOrderHoweverTheyAreCut)
{
    server.bind();
    const auto bytes = test::frame("first") + test::frame(Value::map({ { "second", 2 } }));
    for (const std::size_t size : { std::size_t(1), std::size_t(7), bytes.size() }) {
        server.commands.clear();
        Peer client(loop, pipeName);
        for (std::size_t at = 0; at < bytes.size(); at += size) {
            client.sendRaw(std::string_view(bytes).substr(at, size));
            runTurns(loop, 3); // Each piece is a read of its own.
        }
        client.close();
        EXPECT_TRUE(runUntil(loop, [&] { return server.commands.size() == 2; }));
        EXPECT_THAT(server.commands, ElementsAre("first", HasSubstr("second")));
    }
    EXPECT_THAT(log.lines(), ElementsAre());
}

TEST_F(CommandPipe, ASenderHandsOverOneCommandAndHearsTheEndOnce)
{
    server.bind();
    sendAndAwait("open");
    loop.post([] { CommandIPC::send("nobody waits for this", {}); });
    EXPECT_TRUE(runUntil(loop, [&] { return server.commands.size() == 2; }));
    constexpr unsigned header = 5; // Of bytes as long as these.
    const auto largest = fn::ByteArray(static_cast<unsigned>(CommandIPC::maxCommandBytes) - header);
    sendAndAwait(largest);
    EXPECT_TRUE(runUntil(loop, [&] { return server.commands.size() == 3; }));
    EXPECT_EQ(done, 2);
    EXPECT_THAT(log.lines(), ElementsAre());

    sendAndAwait(fn::ByteArray(static_cast<unsigned>(largest.size()) + 1));
    sendAndAwait(core::Fraction(1, 2)); // Without a form on this wire.
    EXPECT_EQ(done, 4);
    EXPECT_EQ(server.commands.size(), 3U);
    EXPECT_THAT(log.lines(),
        ElementsAre(StartsWith("1 core.commandIPC CommandIPC failed: A message of"),
            StartsWith("1 core.commandIPC CommandIPC failed: Unsupported value type")));
}

TEST_F(CommandPipe, WithNobodyThereTheSenderIsToldAndTheLog)
{
    sendAndAwait("anybody?");
    EXPECT_EQ(done, 1);
    EXPECT_THAT(log.lines(),
        ElementsAre("1 core.commandIPC CommandIPC failed: connect to " + pipeName.toStdString()
            + ": no such file or directory (ENOENT)"));
    const test::ExpectUnhandled expected; // What `done` throws is nobody's to handle, but ends nothing.
    loop.post([] { CommandIPC::send("anybody?", [] { throw fn::RuntimeException("done with it"); }); });
    EXPECT_TRUE(runUntil(loop, [&] { return expected.messages().size() == 1; }));
}

TEST_F(CommandPipe, WhatEndsInTheMiddleLeavesNothingBehind)
{
    test::writeFile(folder.file(fileName), "somebody's");
    auto ending = std::make_unique<Loop>();
    auto local = std::make_unique<Server>(*ending);
    local->bind();
    auto client = std::make_unique<Peer>(*ending, pipeName);
    EXPECT_TRUE(runUntil(*ending, [&] { return client->isConnected(); }));
    send("too late", *ending);
    runTurns(*ending, 1);
    client.reset();
    ending.reset(); // The leak check sees what is left of the connection and of the sender.
    local.reset();
    EXPECT_THAT(entries(), ElementsAre(fileName));
    EXPECT_EQ(test::readFile(folder.file(fileName)), "somebody's");
}

// --- Handlers

TEST_F(CommandPipe, AHandlerThatThrowsEndsNothing)
{
    server.bind();
    server.onCommand = [this] {
        if (server.commands.size() == 1) { // Nor does one that takes its time.
            loop.schedule(CommandIPC::silenceLimit, [this] { loop.stop(); }).detach();
            clock.advance(CommandIPC::silenceLimit);
            loop.run();
        }
        throw fn::RuntimeException("no such command");
    };
    const test::ExpectUnhandled expected;
    Peer client(loop, pipeName);
    client.send("first");
    client.send("second");
    EXPECT_TRUE(runUntil(loop, [&] { return server.commands.size() == 2; }));
    EXPECT_THAT(expected.messages(), ElementsAre(StartsWith("no such command"), StartsWith("no such command")));
    EXPECT_FALSE(client.isEnded());
}

TEST_F(CommandPipe, AHandlerMayStopTheServerWhoseConnectionsGoOn)
{
    server.bind();
    server.onCommand = [this] { server.ipc->stop(); };
    Peer client(loop, pipeName);
    client.send("first");
    client.send("second");
    EXPECT_TRUE(runUntil(loop, [&] { return server.commands.size() == 2; }));
    sendAndAwait("third"); // Nobody listens.
    EXPECT_THAT(server.commands, ElementsAre("first", "second"));
}

TEST_F(CommandPipe, AHandlerMayLetGoOfTheServer)
{
    server.bind();
    server.onCommand = [this] { server.ipc.reset(); };
    Peer silent(loop, pipeName);
    Peer client(loop, pipeName);
    client.send("first");
    client.send("second");
    EXPECT_TRUE(runUntil(loop, [&] { return client.isEnded() && silent.isEnded(); }));
    EXPECT_THAT(server.commands, ElementsAre("first"));
    EXPECT_THAT(entries(), ElementsAre());
}

// --- The endpoint

TEST_F(CommandPipe, WhatStandsThereIsMovedAsideAndPutBack)
{
    EXPECT_THROW(server.ipc->stop(), fn::NullPointerException);
    test::writeFile(folder.file(fileName), "somebody's");
    server.bind();
    EXPECT_THAT(entries(), ElementsAre(fileName, testing::MatchesRegex(".*[.]bk-[0-9a-f-]+")));
    EXPECT_EQ(entries()[1].size(), fileName.size() + 4 + 36);
    server.bind(); // Replaces its own endpoint.
    EXPECT_EQ(entries().size(), 2U);
    sendAndAwait("open");
    EXPECT_THAT(server.commands, ElementsAre("open"));
    for (int time = 0; time < 2; ++time) { // The second time changes nothing.
        server.ipc->stop();
        EXPECT_THAT(entries(), ElementsAre(fileName));
        EXPECT_EQ(test::readFile(folder.file(fileName)), "somebody's");
    }
    server.bind();
    server.ipc.reset(); // As if it had been stopped.
    EXPECT_EQ(test::readFile(folder.file(fileName)), "somebody's");
}

TEST_F(CommandPipe, TheLastOfTheServersToStopPutsBackWhatStoodThereFirst)
{
    const auto first = folder.path() / fileName;
    Server second(loop);
    Server third(loop);
    const std::array servers { &server, &second, &third };
    for (std::array order { 0U, 1U, 2U }; auto* const way : { "a file", "a link that leads nowhere" }) {
        do {
            fs::remove(first);
            if (way[2] == 'f')
                test::writeFile(first.string(), "somebody's");
            else
                fs::create_symlink("nowhere", first);
            for (auto* const each : servers) each->bind();
            for (std::size_t stopped = 0; stopped < order.size(); ++stopped) {
                sendAndAwait("open"); // The latest of those that are left has it.
                const auto last = *std::max_element(order.begin() + static_cast<std::ptrdiff_t>(stopped), order.end());
                EXPECT_THAT(std::exchange(servers[last]->commands, {}), ElementsAre("open"));
                servers[order[stopped]]->ipc->stop();
            }
            EXPECT_THAT(entries(), ElementsAre(fileName)) << way;
            EXPECT_EQ(fs::is_symlink(first), way[2] == 'l');
        } while (std::ranges::next_permutation(order).found);
    }
    // What was to be put back has gone: no matter.
    server.bind();
    second.bind();
    server.ipc->stop();
    for (const auto& name : entries()) {
        if (name != fileName) fs::remove(folder.path() / name);
    }
    second.ipc->stop();
    EXPECT_THAT(entries(), ElementsAre());
}

TEST_F(CommandPipe, ABindThatFailsTellsTheCallerAndLosesNothing)
{
    const auto deep = folder.path() / std::string(100, 'x');
    fs::create_directory(deep);
    const platform::ScopedPipeFolder tooLong(deep.string());
    test::writeFile((deep / fileName).string(), "somebody's");
    EXPECT_THROW(server.bind(), fn::IOException);
    server.ipc->stop();
    EXPECT_EQ(test::readFile((deep / fileName).string()), "somebody's");
}

// --- Peers

std::string withLength(std::uint32_t length, std::string_view body)
{
    std::string bytes;
    for (int byte = 0; byte < 4; ++byte) bytes += static_cast<char>(length >> (8 * byte));
    return bytes.append(body);
}

TEST_F(CommandPipe, APeerThatBreaksTheRulesIsClosedAndNobodyElse)
{
    server.bind();
    Peer other(loop, pipeName);
    const auto tooDeep = std::string(600, '\x91') + "\xc0";
    for (const auto& [bytes, fault] : std::initializer_list<std::pair<std::string, const char*>> {
             { withLength(0, ""), "EPROTO" }, { withLength(CommandIPC::maxCommandBytes + 1, "x"), "EMSGSIZE" },
             { withLength(0xffffffff, ""), "EMSGSIZE" }, { withLength(1, "\xc1"), "EPROTO" },
             { withLength(2, "\x01\x02"), "EPROTO" }, { withLength(5, "\xdd\xff\xff\xff\xff"), "EPROTO" },
             { withLength(static_cast<std::uint32_t>(tooDeep.size()), tooDeep), "EPROTO" } }) {
        const test::LogCapture told(2);
        Peer hostile(loop, pipeName);
        hostile.sendRaw(bytes + test::frame("after it"));
        EXPECT_TRUE(runUntil(loop, [&] { return hostile.isEnded(); })) << fault;
        EXPECT_THAT(told.lines(), ElementsAre(HasSubstr(fault)));
    }
    { // One that goes in the middle of a command is no event.
        Peer hasty(loop, pipeName);
        hasty.sendRaw(withLength(100, "x"));
        EXPECT_TRUE(runUntil(loop, [&] { return hasty.isConnected(); }));
        hasty.close();
        runTurns(loop);
    }
    EXPECT_TRUE(server.commands.empty());
    other.send("still there");
    EXPECT_TRUE(runUntil(loop, [&] { return server.commands.size() == 1; }));
}

TEST_F(CommandPipe, APeerThatBringsNothingInTimeIsClosed)
{
    server.bind();
    Peer silent(loop, pipeName);
    Peer slow(loop, pipeName);
    silent.sendRaw(withLength(100, "x")); // Half a command is none.
    runTurns(loop);
    clock.advance(Duration::seconds(20));
    slow.send("first");
    EXPECT_TRUE(runUntil(loop, [&] { return server.commands.size() == 1; }));
    clock.advance(Duration::seconds(10));
    EXPECT_TRUE(runUntil(loop, [&] { return silent.isEnded(); }));
    EXPECT_FALSE(slow.isEnded());
    EXPECT_TRUE(log.contains("brought no command in time"));
    clock.advance(Duration::seconds(20));
    EXPECT_TRUE(runUntil(loop, [&] { return slow.isEnded(); }));
}

TEST_F(CommandPipe, ACommandThatLiesUnreadIsInTime)
{
    server.bind();
    Loop elsewhere; // What the client does while the server's loop stands still.
    Peer client(elsewhere, pipeName);
    EXPECT_TRUE(runUntil(elsewhere, [&] { return client.isConnected(); }));
    runTurns(loop);
    client.send("in time");
    runTurns(elsewhere);
    clock.advance(CommandIPC::silenceLimit);
    EXPECT_TRUE(runUntil(loop, [&] { return !server.commands.empty(); }));
    client.send("again");
    runTurns(elsewhere);
    EXPECT_TRUE(runUntil(loop, [&] { return server.commands.size() == 2; }));
    EXPECT_THAT(log.lines(), ElementsAre());
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
    for (const auto* command : { "first", "second", "third" }) send(command, loop);
    EXPECT_TRUE(runUntil(loop, [&] { return done == 3; }));
    runTurns(loop);
    EXPECT_THAT(server.commands, ElementsAre());
    peers.front().send("spoken"); // Silent no more.
    EXPECT_TRUE(runUntil(loop, [&] { return server.commands.size() == 1; }));
    peers.pop_back(); // Room for one, who makes room for the next.
    EXPECT_TRUE(runUntil(loop, [&] { return server.commands.size() == 4; }));
    EXPECT_THAT(server.commands, ElementsAre("spoken", "first", "second", "third"));
    EXPECT_EQ(closed(), 0);

    Peer one(loop, pipeName); // Who finds room, and one more who does not, until somebody was silent for too long.
    runTurns(loop);
    send("fourth", loop);
    runTurns(loop);
    EXPECT_EQ(server.commands.size(), 4U);
    clock.advance(CommandIPC::crowdedSilenceLimit);
    EXPECT_TRUE(runUntil(loop, [&] { return server.commands.size() == 5; }));
    runTurns(loop);
    EXPECT_EQ(closed(), 1);

    peers.clear();
    runTurns(loop);
    fill();
    for (const auto* command : { "fifth", "sixth" }) send(command, loop);
    EXPECT_TRUE(runUntil(loop, [&] { return done == 6; }));
    server.ipc->stop();
    EXPECT_THAT(std::vector(server.commands.begin() + 5, server.commands.end()), ElementsAre("fifth", "sixth"));
}

TEST_F(CommandPipe, ASenderGivesUpInTheEnd)
{
    const auto busy = fn::makeAuto<fn::uv::PipeStream>(loop); // It lets nobody in, and reads nothing.
    busy->bind(pipeName);
    busy->listen(1, [](const fn::uv::Status&) {});
    busy->listenStop();
    send(fn::ByteArray(3U << 20), loop); // More than the system takes for it.
    runTurns(loop);
    EXPECT_EQ(done, 0);
    clock.advance(CommandIPC::sendLimit);
    EXPECT_TRUE(runUntil(loop, [&] { return done == 1; }));
    runTurns(loop);
    EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("ETIMEDOUT")));
}

} // namespace
