// The inspectors in a web browser, seen from its socket. What can break here: somebody else who is answered, a request that
// holds up or ends the module, a link that leads nowhere, a page that outlives what it shows.
#include "web_program.h"
#include <csignal>
#include <gtest/gtest.h>

namespace {

using test::await;
using test::WebConnection;

class InspectorWebTest : public test::WebProgramTest { };

TEST_F(InspectorWebTest, OnlyWhoKnowsTheTokenAndComesFromHereIsAnswered)
{
    const auto address = awaitAddress();
    const auto base = "/" + address.token + "/";
    auto wrong = base;
    wrong[wrong.size() - 2] = wrong[wrong.size() - 2] == '0' ? '1' : '0';
    const auto host = "Host: " + address.host + "\r\n";
    const auto local = "Host: localhost:" + std::to_string(address.port) + "\r\n";
    const struct {
        std::string target;
        std::string headers;
        const char* method;
        int status;
    } cases[] = {
        { base, host, "GET", 200 },
        { base, local, "GET", 200 },
        { base, host + "Origin: http://" + address.host + "\r\n", "GET", 200 },
        { "/", host, "GET", 404 },
        { "", host, "GET", 404 },
        { wrong, host, "GET", 404 },
        { base.substr(0, base.size() - 2) + "/", host, "GET", 404 },
        { base.substr(0, base.size() - 1), host, "GET", 404 },
        { "/x" + base, host, "GET", 404 },
        { "http://" + address.host + base, host, "GET", 200 },
        { "HTTP://" + address.host + base, host, "GET", 200 },
        { "http://" + address.host + wrong, host, "GET", 404 },
        { "http://" + address.host, host, "GET", 404 },
        { "http://evil.example" + base, host, "GET", 403 },
        { "http://" + address.host + base, "Host: evil.example\r\n", "GET", 403 },
        { base, "", "GET", 403 },
        { base, "Host: evil.example\r\n", "GET", 403 },
        { base, "Host: evil.example:" + std::to_string(address.port) + "\r\n", "GET", 403 },
        { base, "Host: 127.0.0.1\r\n", "GET", 403 },
        { base, host + "Host: evil.example\r\n", "GET", 403 },
        { base, host + "Origin: null\r\n", "GET", 403 },
        { base, host + "Origin: http://evil.example\r\n", "GET", 403 },
        { base, host + "Origin: https://" + address.host + "\r\n", "GET", 403 },
        { base, host, "HEAD", 405 },
        { base, host + "Content-Length: 1000000000\r\n", "POST", 405 },
        { base, host + "Transfer-Encoding: chunked\r\n", "PUT", 405 },
        { wrong, host, "POST", 404 },
        { base, host, "GARBAGE", 400 },
        { wrong, host, "GARBAGE", 404 },
        { base, "", "GARBAGE", 403 },
        { base + "?" + std::string(9000, 'x'), host, "GET", 414 },
        { wrong + "?" + std::string(9000, 'x'), host, "GET", 404 },
        { base + "?" + std::string(9000, 'x'), "", "GET", 403 },
        { base, host + "Range: bytes=1-0\r\n", "GET", 416 },
        { wrong, host + "Range: bytes=1-0\r\n", "GET", 404 },
        { base, "host:\t" + address.host + " \r\nRange: bytes=0-1\r\n", "GET", 200 },
    };
    for (const auto& row : cases) {
        const auto request = address.request(row.target, row.headers, row.method);
        const WebConnection connection(address.port);
        ASSERT_TRUE(connection.send(request));
        const auto reply = connection.reply();
        EXPECT_EQ(reply.status, row.status) << request;
        EXPECT_EQ(reply.body.find("Workers") != std::string::npos, row.status == 200) << request;
        EXPECT_EQ((reply.head + reply.body).find(address.token), std::string::npos) << request;
        for (const auto* header :
            { "Content-Security-Policy: default-src 'none'; ", "X-Content-Type-Options: nosniff\r\n",
                "Referrer-Policy: no-referrer\r\n", "Cache-Control: no-store\r\n" }) {
            EXPECT_NE(reply.head.find(header), std::string::npos) << request << reply.head;
        }
    }
    EXPECT_FALSE(WebConnection(address.port, "127.0.0.2").isOpen()) << "It listens on more than one address.";
}

TEST_F(InspectorWebTest, EveryLinkLeadsToAPageAndBack)
{
    const auto address = awaitAddress();
    const auto list = address.get("");
    for (const auto* name : { "Modules", "Registry", "Workers" }) {
        const auto page = address.get(test::linkOf(list.body, name));
        EXPECT_EQ(page.status, 200);
        EXPECT_NE(page.head.find("Content-Type: text/html; charset=utf-8\r\n"), std::string::npos) << page.head;
        EXPECT_NE(page.body.find("<title>" + std::string(name) + "</title>"), std::string::npos) << page.body;
        for (const auto& [link, text] : test::links(page.body)) EXPECT_EQ(address.get(link).status, 200) << link;
    }
    const auto workersLink = test::linkOf(list.body, "Workers");
    const auto workers = address.get(workersLink);
    const auto worker = address.get(test::linkOf(workers.body, "library ("));
    EXPECT_NE(worker.body.find("library"), std::string::npos) << worker.body;
    const auto back = address.get(test::linkOf(worker.body, "Back"));
    EXPECT_NE(back.body.find("library ("), std::string::npos) << back.body;
    EXPECT_EQ(address.get(test::linkOf(worker.body, "Reload")).status, 200);
    EXPECT_NE(address.get(test::linkOf(worker.body, "All inspectors")).body.find("Modules"), std::string::npos);
}

TEST_F(InspectorWebTest, GarbageIsRefusedAndEndsNothing)
{
    const auto address = awaitAddress();
    const auto workers = test::linkOf(address.get("").body, "Workers");
    std::string deep;
    for (int i = 0; i < 400; ++i) deep += "kZGR"; // An array within an array, 1200 times.
    for (const auto& action :
        { std::string("%25%25%25"), std::string("wA%3D%3D"), std::string("w"), std::string("wMA"), std::string("%00"),
            std::string("3f____8"), std::string("2____w"), deep, std::string(3001, 'A'), std::string() }) {
        EXPECT_EQ(address.get(workers + "&action=" + action).status, 400) << action;
        EXPECT_EQ(address.get(workers + "&from=" + action).status, 400) << action;
    }
    EXPECT_EQ(address.get(workers + "&theme=%25").status, 200) << "What it does not know it does not decode.";
    for (const auto* page : { "inspector", "inspector?key=", "inspector?key=unknown&action=wA", "inspector?key=%00%ff",
             "nowhere", "../", "inspector/", "?key" }) {
        const auto reply = address.get(page);
        EXPECT_EQ(reply.status, std::string_view(page) == "?key" ? 200 : 404) << page;
    }
    // What no inspector has made, and yet is a value: the text "<script>", true, [[], {}].
    for (const auto* action : { "qDxzY3JpcHQ-", "ww", "kpCA" }) {
        const auto reply = address.get(workers + "&action=" + action);
        EXPECT_TRUE(reply.status == 200 || reply.status == 502) << reply.status;
        EXPECT_EQ(reply.body.find("<script"), std::string::npos) << reply.body;
    }
    EXPECT_EQ(address.get("").status, 200);
}

TEST_F(InspectorWebTest, WhoSendsTooMuchOrTooSlowlyLosesItsConnectionAndNobodyElseDoes)
{
    const auto address = awaitAddress();
    for (const auto& request : { "GET /" + std::string(10'000'000, 'x'),
             address.request("/", "Host: " + address.host + "\r\nX: " + std::string(10'000'000, 'x') + "\r\n"),
             address.request(
                 "/" + address.token + "/?" + std::string(20'000, 'x'), "Host: " + address.host + "\r\n") }) {
        const WebConnection connection(address.port);
        connection.send(request); // It may be cut off.
        const auto status = connection.reply().status;
        EXPECT_TRUE(status == 0 || status == 403 || status == 404 || status == 414) << status;
    }
    std::vector<WebConnection> slow;
    for (int i = 0; i < 20; ++i) { // More than it serves at once.
        slow.emplace_back(address.port);
        slow.back().send("GET / HTTP/1.1\r\nX: ");
    }
    EXPECT_TRUE(await([&] { return !slow.front().send("x") || slow.front().hasEnded(); }))
        << "A byte now and then suffices.";
    EXPECT_EQ(address.get("").status, 200);
}

TEST_F(InspectorWebTest, ManyAreServedAtOnce)
{
    const auto address = awaitAddress();
    const auto request = address.request("/" + address.token + "/", "Host: " + address.host + "\r\n");
    std::vector<WebConnection> connections;
    for (int i = 0; i < 200; ++i) {
        connections.emplace_back(address.port);
        ASSERT_TRUE(connections.back().send(request));
    }
    for (const auto& connection : connections) EXPECT_EQ(connection.reply().status, 200);
}

TEST_F(InspectorWebTest, AProcessThatHangsAndDiesTakesItsPagesAlongAndNothingElse)
{
    const auto address = awaitAddress();
    const auto shows = [&](const char* name) {
        return address.get("").body.find(">" + std::string(name) + "</a>") != std::string::npos;
    };
    ASSERT_TRUE(await([&] { return shows("Scanner"); }));
    const auto link = test::linkOf(address.get("").body, "Scanner");
    EXPECT_EQ(address.get(link).status, 200);
    const auto scanner = program->awaitModule("scanner");
    ::kill(scanner, SIGSTOP);
    const WebConnection waiting(address.port);
    ASSERT_TRUE(waiting.send(address.request("/" + address.token + "/" + link, "Host: " + address.host + "\r\n")));
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(shows("Scanner")); // By now the other request has come to the scanner.
    ::kill(scanner, SIGKILL);
    const auto reply = waiting.reply();
    EXPECT_EQ(reply.status, 502);
    EXPECT_NE(reply.body.find("has ended"), std::string::npos) << reply.body;
    EXPECT_TRUE(await([&] { return address.get(link).status == 200; })) << "Its successor has the same address.";
}

TEST_F(InspectorWebTest, TheModuleComesBackUnderANewAddress)
{
    const auto address = awaitAddress();
    ::kill(program->awaitModule("inspector_web"), SIGKILL);
    const auto next = awaitAddress(2);
    EXPECT_NE(next.token, address.token);
    EXPECT_EQ(next.get("").status, 200);
}

TEST_F(InspectorWebTest, TheProgramEndsWhileConnectionsAreOpen)
{
    const auto address = awaitAddress();
    std::vector<WebConnection> open;
    for (int i = 0; i < 20; ++i) {
        open.emplace_back(address.port);
        open.back().send("GET /");
    }
    program->signal(SIGTERM);
    EXPECT_EQ(program->wait(), 128 + SIGTERM);
    const auto log = test::readFile(folder.file("state/skyfold/logs/skyfold.default.log"));
    EXPECT_NE(log.find("Module inspector_web did exit (status: 0, signal 0)"), std::string::npos) << log;
    for (const auto& connection : open) EXPECT_EQ(connection.reply().status, 0);
}

} // namespace
