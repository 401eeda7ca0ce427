// The threads of the server and the loop. What can break here: an answer that reaches another request, a thread that waits for a
// loop that will not answer any more, an end that waits for a thread.
#include "../web_client.h"
#include "foundation/uv/loop.h"
#include "inspector_web/http_server.h"
#include "inspector_web/loop_gate.h"
#include "support/run_until.h"
#include <algorithm>
#include <gtest/gtest.h>
#include <optional>
#include <vector>

namespace {

using media::LoopGate;
using media::WebAnswer;
using media::WebRequest;
using Pending = fn::Promise<WebAnswer>;

class ServerTest : public testing::Test {
protected:
    void serve(LoopGate::Answering answering)
    {
        gate = std::make_shared<LoopGate>(loop, std::move(answering));
        server.emplace([gate = gate](const WebRequest& request) { return gate->ask(request); });
        address.emplace(server->address());
    }

    test::WebConnection connect(const std::string& page) const
    {
        test::WebConnection connection(address->port);
        EXPECT_TRUE(connection.send(address->request(page)));
        return connection;
    }

    fn::uv::Loop loop;
    std::shared_ptr<LoopGate> gate;
    std::optional<media::HttpServer> server;
    std::optional<test::WebAddress> address;
};

TEST_F(ServerTest, EachRequestHasItsOwnAnswerInWhateverOrderTheyCome)
{
    std::vector<std::pair<Pending, std::string>> waiting; // The loop's.
    serve([&](const WebRequest& request) {
        waiting.emplace_back(Pending::create(), request.path + " " + request.parameters.at("a"));
        return waiting.back().first;
    });
    std::vector<test::WebConnection> connections;
    for (int i = 0; i < 10; ++i) connections.push_back(connect("p" + std::to_string(i) + "?a=%3C" + std::to_string(i)));
    EXPECT_TRUE(test::runUntil(loop, [&] { return waiting.size() == connections.size(); }));
    std::ranges::reverse(waiting);
    for (const auto& [pending, text] : waiting) pending.fulfill({ 200, text });
    for (std::size_t i = 0; i < connections.size(); ++i) {
        EXPECT_EQ(connections[i].reply().body, "p" + std::to_string(i) + " <" + std::to_string(i));
    }
    server.reset();
}

TEST_F(ServerTest, WhoWaitsIsSentAwayAndWhoComesLaterToo)
{
    std::vector<Pending> asked; // Never answered.
    serve([&](const WebRequest&) { return asked.emplace_back(Pending::create()); });
    const auto reached = connect("");
    EXPECT_TRUE(test::runUntil(loop, [&] { return !asked.empty(); }));
    const auto posted = connect(""); // Its task never runs.
    gate->close();
    EXPECT_EQ(reached.reply().status, 503);
    EXPECT_EQ(posted.reply().status, 503);
    EXPECT_EQ(connect("").reply().status, 503);
    asked.front().fulfill({ 200, "too late" });
    server.reset();
    EXPECT_FALSE(test::WebConnection(address->port).isOpen());
    test::runTurns(loop);
    EXPECT_EQ(asked.size(), 1u);
}

} // namespace
