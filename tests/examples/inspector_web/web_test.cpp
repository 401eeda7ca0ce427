// The inspectors in a web browser, seen from its socket. What can break here: somebody else who is answered, a request that
// holds up or ends the module, a link that leads nowhere, a page that outlives what it shows.
#include "examples/media_server/skyfold_fixture.h"
#include "web_client.h"

namespace {

using test::await;
using test::WebConnection;

/// The program as it serves its inspectors.
class InspectorWebTest : public test::SkyfoldTest {
protected:
    InspectorWebTest()
    {
        write("song.mp3", "music");
        program.emplace(arguments({ "--inspect-web", "--json" }));
    }

    /// The address that the program announces behind `seen`: each time its module starts.
    test::WebAddress awaitAddress(const std::string& seen = {})
    {
        constexpr std::string_view announcement = "Inspect at ";
        std::string address;
        EXPECT_TRUE(await([&] {
            const auto errors = program->errors();
            const auto begin = errors.rfind(announcement);
            const auto end = errors.find('\n', begin);
            if (begin == std::string::npos || end == std::string::npos) return false;
            address = errors.substr(begin + announcement.size(), end - begin - announcement.size());
            return address != seen;
        })) << program->errors();
        return test::WebAddress(address);
    }

    std::optional<test::Program> program; // Runs.
};

TEST_F(InspectorWebTest, OnlyWhoKnowsTheTokenAndComesFromHereIsAnswered)
{
    const auto address = awaitAddress();
    const auto base = "/" + address.token + "/";
    auto wrong = base;
    wrong[wrong.size() - 2] = wrong[wrong.size() - 2] == '0' ? '1' : '0';
    const auto host = "Host: " + address.host + "\r\n";
    const struct {
        std::string target;
        std::string headers;
        const char* method;
        int status;
    } rows[] = {
        { base, host, "GET", 200 },
        { base, "Host: localhost:" + std::to_string(address.port) + "\r\n", "GET", 200 },
        { base, host + "Origin: http://" + address.host + "\r\n", "GET", 200 },
        { "HTTP://" + address.host + base, host, "GET", 200 },
        { base, "host:\t" + address.host + " \r\nRange: bytes=0-1\r\n", "GET", 200 },
        { "/", host, "GET", 404 },
        { wrong, host, "GET", 404 },
        { base.substr(0, base.size() - 2) + "/", host, "GET", 404 },
        { "http://evil.example" + base, host, "GET", 403 },
        { base, "", "GET", 403 },
        { base, "Host: 127.0.0.1\r\n", "GET", 403 },
        { base, host + "Host: evil.example\r\n", "GET", 403 },
        { base, host + "Origin: null\r\n", "GET", 403 },
        { base, host + "Origin: https://" + address.host + "\r\n", "GET", 403 },
        { base, host + "Content-Length: 1000000000\r\n", "POST", 405 },
        { base + "?" + std::string(9000, 'x'), host, "GET", 414 },
        { base, host + "Range: bytes=1-0\r\n", "GET", 416 },
    };
    for (const auto& row : rows) {
        const auto request = fmt::format("{} {} HTTP/1.1\r\n{}\r\n", row.method, row.target, row.headers);
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

TEST_F(InspectorWebTest, EveryLinkLeadsToAPageAndGarbageIsRefusedAndEndsNothing)
{
    const auto address = awaitAddress();
    const auto list = address.get("").body;
    for (const auto* name : { "Modules", "Registry", "Workers" }) {
        const auto page = address.get(test::linkOf(list, name));
        EXPECT_NE(page.head.find("Content-Type: text/html; charset=utf-8\r\n"), std::string::npos) << page.head;
        EXPECT_NE(page.body.find("<title>" + std::string(name) + "</title>"), std::string::npos) << page.body;
        for (const auto& [link, text] : test::links(page.body)) EXPECT_EQ(address.get(link).status, 200) << link;
    }
    const auto workers = test::linkOf(list, "Workers");
    ASSERT_TRUE(await([&] { return address.get(workers).body.contains("library ("); })) << "it has started";
    const auto worker = address.get(test::linkOf(address.get(workers).body, "library (")).body;
    EXPECT_TRUE(address.get(test::linkOf(worker, "Back")).body.contains("library ("));

    std::string deep;
    for (int i = 0; i < 400; ++i) deep += "kZGR"; // An array within an array, 1200 times.
    for (const auto& action : { std::string("%25%25%25"), std::string("wA%3D%3D"), std::string("w"), std::string("%00"),
             std::string("3f____8"), deep, std::string(3001, 'A'), std::string() }) {
        EXPECT_EQ(address.get(workers + "&action=" + action).status, 400) << action;
        EXPECT_EQ(address.get(workers + "&from=" + action).status, 400) << action;
    }
    for (const auto* page :
        { "inspector", "inspector?key=unknown&action=wA", "inspector?key=%00%ff", "nowhere", "../" })
        EXPECT_EQ(address.get(page).status, 404) << page;

    std::vector<WebConnection> slow;
    for (int i = 0; i < 20; ++i) { // More than it serves at once.
        slow.emplace_back(address.port);
        slow.back().send("GET / HTTP/1.1\r\nX: ");
    }
    EXPECT_TRUE(await([&] { return !slow.front().send("x") || slow.front().hasEnded(); }))
        << "A byte now and then suffices.";
    EXPECT_EQ(address.get("").status, 200);
}

TEST_F(InspectorWebTest, WhoHangsDiesOrEndsTakesItsPagesAlongAndNothingElse)
{
    auto address = awaitAddress();
    const auto shows = [&](const char* name) {
        return address.get("").body.find(">" + std::string(name) + "</a>") != std::string::npos;
    };
    ASSERT_TRUE(await([&] { return shows("Scanner"); }));
    const auto link = test::linkOf(address.get("").body, "Scanner");
    const auto scanner = program->awaitModule("scanner");
    ::kill(scanner, SIGSTOP);
    const WebConnection waiting(address.port);
    ASSERT_TRUE(waiting.send(address.request(link)));
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(shows("Scanner")); // By now the other request has come to the scanner.
    ::kill(scanner, SIGKILL);
    const auto reply = waiting.reply();
    EXPECT_EQ(reply.status, 502);
    EXPECT_NE(reply.body.find("has ended"), std::string::npos) << reply.body;
    EXPECT_TRUE(await([&] { return address.get(link).status == 200; })) << "Its successor has the same address.";

    ::kill(program->awaitModule("inspector_web"), SIGKILL);
    const auto next = awaitAddress(address.text);
    EXPECT_NE(next.token, address.token);
    EXPECT_EQ(next.get("").status, 200);

    std::vector<WebConnection> open;
    for (int i = 0; i < 20; ++i) {
        open.emplace_back(next.port);
        open.back().send("GET /");
    }
    program->signal(SIGTERM);
    EXPECT_EQ(program->wait(), 128 + SIGTERM);
    const auto log = test::readFile(folder.file("state/skyfold/logs/skyfold.default.log"));
    EXPECT_NE(log.find("Module inspector_web did exit (status: 0, signal 0)"), std::string::npos) << log;
    for (const auto& connection : open) EXPECT_EQ(connection.reply().status, 0);
}

} // namespace
