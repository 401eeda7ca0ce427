// Inspectors that mean no good and visitors who mean no good, on either side of the server. What can break here: text that
// becomes HTML, a link that is too long to be followed or leads elsewhere, an inspector that is broken, slow or dead and takes
// the browser along; somebody else who is answered, a request that holds up or ends the server.
#include "base/exceptions.h"
#include "core/ipc/hub_fixture.h"
#include "core/ipc_services/inspector/publish_inspector.h"
#include "core/ipc_services/inspector/register_inspector_registry.h"
#include "inspector_web/action_text.h"
#include "inspector_web/http_server.h"
#include "inspector_web/inspector_pages.h"
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <list>
#include <regex>
#include <sys/socket.h>

namespace {

using fn::Value;
using inspector_web::HttpConnection;
using inspector_web::HttpServer;
using testing::HasSubstr;

/// A connection to the loopback interface, spoken on byte by byte. Nothing waits.
class WebConnection {
public:
    explicit WebConnection(int port, const char* address = "127.0.0.1")
    {
        sockaddr_in to { .sin_family = AF_INET,
            .sin_port = htons(static_cast<std::uint16_t>(port)),
            .sin_addr = { ::inet_addr(address) },
            .sin_zero = {} };
        if (::connect(_socket.get(), reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) _socket.close();
    }

    bool isOpen() const { return static_cast<bool>(_socket); } ///< Whether somebody has taken the connection.
    void send(std::string_view bytes) const
    {
        static_cast<void>(::send(_socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL)); // It may have been closed.
    }
    /// Whether the other side has closed. Takes what has come until then.
    bool hasEnded()
    {
        char buffer[65536];
        ssize_t count = 0;
        while ((count = ::recv(_socket.get(), buffer, sizeof buffer, MSG_DONTWAIT)) > 0)
            _answer.append(buffer, static_cast<std::size_t>(count));
        return count == 0 || errno != EAGAIN;
    }
    const std::string& answer() const { return _answer; } ///< From the status line on.
    int status() const { return _answer.starts_with("HTTP/1.1 ") ? std::stoi(_answer.substr(9, 3)) : 0; }

private:
    fn::FileDescriptor _socket { ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0) };
    std::string _answer;
};

/// The target of the first link whose text contains `text`. "" and a failure of the test where there is none.
std::string linkOf(const std::string& html, const std::string& text)
{
    static const std::regex form("<a href=\"([^\"]*)\">([^<]*)</a>");
    for (std::sregex_iterator at(html.begin(), html.end(), form), end; at != end; ++at) {
        if ((*at)[2].str().contains(text)) return std::regex_replace((*at)[1].str(), std::regex("&amp;"), "&");
    }
    ADD_FAILURE() << "No link says " << text << ":\n" << html;
    return {};
}

class HostileInspector final : public core::Inspector {
public:
    void inspect(const Value& action, const Value& referer, const CallContext& context) override
    {
        if (action == Value("silent")) return;
        sendResult(context, inspect(action, referer));
    }
    core::InspectionResult inspect(const Value& action, const Value& referer) override
    {
        core::InspectionResult result;
        if (action == Value("throw")) throw fn::RangeException("no <b>page</b>");
        if (action == Value("circle")) result.redirectAction = action;
        if (action == Value("elsewhere")) result.redirectAction = Value(7);
        if (result.redirectAction) return result;
        core::InspectionResultWriter writer(result);
        writer.append("at " + action.toString() + " from " + referer.toString());
        if (!action.isNil()) return result;
        writer.append("</ul><script>alert(1)</script>", "throw")
            .append("\" onclick='x' &lt;", Value::array({ "a", 1.5, fn::ByteArray("\xff\0") }))
            .append("\xff\xfe cut \xe2\x82 control \x1b[2J")
            .append("too long", std::string(10'000, 'x'));
        writer.append(std::string(100'000, '"') + "end of a long line");
        for (int i = 0; i < 200'000; ++i) writer.append("line");
        return result;
    }
};

class InspectorWebTest : public test::HubTest {
protected:
    InspectorWebTest()
    {
        loop.post([this] {
            core::registerInspectorRegistry(dispatcher->worker());
            core::publishInspector(*publisher->worker, "<i>Hostile</i>", fn::makeAuto<HostileInspector>());
        });
        settle();
        link = linkOf(get("").answer(), "Hostile");
    }

    /// Sends a request; what has come when the server closes the connection, at the latest when `wait` is over.
    WebConnection ask(const std::string& request, fn::Duration wait = {})
    {
        WebConnection connection(port);
        connection.send(request);
        settle();
        pass(wait);
        EXPECT_TRUE(test::spinUntil(loop, [&] { return connection.hasEnded(); })) << request;
        return connection;
    }
    std::string request(const std::string& page) const
    {
        return "GET " + base + page + " HTTP/1.1\r\nHost: " + host + "\r\n\r\n";
    }
    WebConnection get(const std::string& page, fn::Duration wait = {}) { return ask(request(page), wait); }

    std::string linkTo(const Value& action) const { return link + "&action=" + *inspector_web::actionText(action); }

    std::unique_ptr<test::Client> publisher = client("Publisher"), browser = client("Browser");
    inspector_web::InspectorPages pages { *browser->worker };
    std::optional<HttpServer> server { std::in_place, loop,
        [this](const auto& request) { return pages.answer(request); } };
    const std::string address = server->access().address(); // http://127.0.0.1:PORT/TOKEN/
    const std::string host = address.substr(7, address.find('/', 7) - 7);
    const std::string base = address.substr(7 + host.size());
    const int port = std::stoi(host.substr(host.find(':') + 1));
    std::string link;
};

TEST_F(InspectorWebTest, WhatAnInspectorSaysIsTextAndItsActionsComeBackAsTheyWere)
{
    EXPECT_THAT(get("").answer(),
        HasSubstr("<a href=\"" + std::regex_replace(link, std::regex("&"), "&amp;") + "\">&lt;i&gt;Hostile"));
    const auto page = get(link).answer();
    for (const auto* markup : { "<script", "<i>", "<b>", " onclick='", "\x1b", "\xff", "end of a long line" })
        EXPECT_FALSE(page.contains(markup)) << markup;
    for (const auto* text : { "\ufffd\ufffd cut \ufffd\ufffd control \ufffd[2J", "<li>too long</li>", " more.</p>" })
        EXPECT_TRUE(page.contains(text)) << text;
    EXPECT_LT(page.size(), 3'000'000u);
    const auto action = Value::array({ "a", 1.5, fn::ByteArray("\xff\0") }).toString().toStdString();
    const auto expected = std::regex_replace("at " + action + " from nil", std::regex("\""), "&quot;");
    EXPECT_THAT(get(linkOf(page, "onclick")).answer(), HasSubstr(expected));
}

TEST_F(InspectorWebTest, ARedirectionIsFollowedAndWhatIsBrokenSlowOrDeadIsTold)
{
    const auto page = get(linkTo("elsewhere")).answer();
    EXPECT_THAT(page, HasSubstr("at 7 from elsewhere"));
    EXPECT_THAT(get(linkOf(page, "Reload")).answer(), HasSubstr("at 7 from nil"));
    const auto thrown = get(linkTo("throw"));
    EXPECT_EQ(thrown.status(), 502);
    EXPECT_THAT(thrown.answer(), HasSubstr("no &lt;b&gt;page&lt;/b&gt;"));
    EXPECT_EQ(get(linkTo("circle")).status(), 502);
    EXPECT_EQ(get(linkTo("silent"), fn::Duration::seconds(20)).status(), 504);
    EXPECT_EQ(get(link).status(), 200);

    WebConnection waiting(port);
    waiting.send(request(linkTo("silent")));
    settle();
    publisher->worker->stop();
    EXPECT_TRUE(test::spinUntil(loop, [&] { return waiting.hasEnded(); }));
    EXPECT_EQ(waiting.status(), 502);
    EXPECT_EQ(get(link).status(), 404);
    EXPECT_EQ(get("").status(), 200);
}

TEST_F(InspectorWebTest, OnlyWhoKnowsTheTokenAndComesFromHereIsAnswered)
{
    auto wrong = base;
    wrong[wrong.size() - 2] = wrong[wrong.size() - 2] == '0' ? '1' : '0';
    const auto own = "Host: " + host + "\r\n";
    const struct {
        std::string target;
        std::string headers;
        int status;
        const char* method = "GET";
    } rows[] = {
        { base, own, 200 },
        { base, "Host: localhost:" + std::to_string(port) + "\r\n", 200 },
        { base, own + "Origin: http://" + host + "\r\n", 200 },
        { "HTTP://" + host + base, own, 200 },
        { base, "host:\t" + host + " \r\nRange: bytes=1-0\r\n", 200 },
        { "/", own, 404 },
        { wrong, own, 404 },
        { base.substr(0, base.size() - 2) + "/", own, 404 },
        { "http://evil.example" + base, own, 403 },
        { base, "", 403 },
        { base, "Host: 127.0.0.1\r\n", 403 },
        { base, own + "Host: evil.example\r\n", 403 },
        { base, own + "Origin: null\r\n", 403 },
        { base, own + "Origin: https://" + host + "\r\n", 403 },
        { base, own + "Content-Length: 1000000000\r\n", 405, "POST" },
        { base, own + "X: " + std::string(HttpConnection::mostRequestBytes, 'x'), 431 },
    };
    for (const auto& row : rows) {
        const auto request = fmt::format("{} {} HTTP/1.1\r\n{}\r\n", row.method, row.target, row.headers);
        const auto connection = ask(request);
        const auto& answer = connection.answer();
        EXPECT_EQ(connection.status(), row.status) << request;
        EXPECT_EQ(answer.contains("Hostile"), row.status == 200) << request;
        EXPECT_FALSE(answer.contains(base.substr(1, base.size() - 2))) << request;
        for (const auto* header :
            { "Content-Security-Policy: default-src 'none'; ", "X-Content-Type-Options: nosniff\r\n",
                "Referrer-Policy: no-referrer\r\n", "Cache-Control: no-store\r\n" })
            EXPECT_THAT(answer, HasSubstr(header)) << request;
    }
    EXPECT_FALSE(WebConnection(port, "127.0.0.2").isOpen()) << "It listens on more than one address.";
}

TEST_F(InspectorWebTest, GarbageIsRefusedAndWhoIsSilentHoldsUpNobody)
{
    std::string deep;
    for (int i = 0; i < 400; ++i) deep += "kZGR"; // An array within an array, 1200 times.
    for (const auto& action : { std::string("%25%25%25"), std::string("wA%3D%3D"), std::string("w"), std::string("%00"),
             std::string("3f____8"), deep, std::string(3001, 'A'), std::string() }) {
        EXPECT_EQ(get(link + "&action=" + action).status(), 400) << action;
        EXPECT_EQ(get(link + "&from=" + action).status(), 400) << action;
    }
    for (const auto* page : { "inspector", "inspector?key=unknown&action=wA", "inspector?key=%00%f", "nowhere", "../" })
        EXPECT_EQ(get(page).status(), 404) << page;

    std::list<WebConnection> slow;
    const auto crowd = [&](const std::string& request) {
        slow.clear();
        for (std::size_t i = 0; i < HttpServer::mostConnections; ++i) slow.emplace_back(port).send(request);
        settle();
    };
    crowd("GET / HTTP/1.1\r\nX: ");
    EXPECT_FALSE(slow.front().hasEnded());
    EXPECT_EQ(get("").status(), 200);
    EXPECT_TRUE(slow.front().hasEnded());
    slow.back().send("x"); // A byte now and then does not suffice.
    pass(HttpConnection::mostReading);
    EXPECT_TRUE(test::spinUntil(loop, [&] { return slow.back().hasEnded(); }));
    crowd(request(linkTo("silent")));
    WebConnection late(port);
    EXPECT_TRUE(test::spinUntil(loop, [&] { return late.hasEnded(); }));
    EXPECT_FALSE(slow.front().hasEnded()) << "Who is owed an answer is not turned away.";
    server.reset();
    for (auto& connection : slow) EXPECT_TRUE(connection.hasEnded() && connection.status() == 0);
}

} // namespace
