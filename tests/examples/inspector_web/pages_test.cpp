// The pages of inspectors that mean no good, through a real hub. What can break here: text that becomes HTML, a link that is
// too long to be followed or leads elsewhere, an inspector that is broken, slow or dead and takes the browser along.
#include "core/app_info.h"
#include "core/inspector/inspection_result_writer.h"
#include "core/inspector/register_inspector_registry.h"
#include "foundation/exceptions.h"
#include "foundation/time/clock.h"
#include "inspector_web/action_text.h"
#include "inspector_web/inspector_pages.h"
#include "support/worker.h"
#include "web_client.h"
#include <gtest/gtest.h>

namespace {

using fn::Value;
using media::WebAnswer;

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
        if (action == Value("circle")) {
            result.redirectAction = action;
            return result;
        }
        if (action == Value("elsewhere")) {
            result.redirectAction = Value(7);
            return result;
        }
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

class InspectorPagesTest : public testing::Test {
protected:
    void SetUp() override
    {
        core::AppInfo::initialize(core::AppInfo::App::Skyfold);
        dispatcher.onReady().connect([this] { core::registerInspectorRegistry(dispatcher.worker()); }).detach();
        dispatcher.bind();
        dispatcher.start();
        for (auto* client : { &publisher, &browser }) {
            client->emplace(loop, dispatcher.pipePath());
            EXPECT_TRUE(test::runUntil(loop, [&] { return (*client)->isConnected(); }));
        }
        pages = fn::makeAuto<media::InspectorPages>(*(*browser).worker);
        loop.post([this] { media::publish(*publisher->worker, "<i>Hostile</i>", fn::makeAuto<HostileInspector>()); });
        EXPECT_TRUE(test::runUntil(loop, [this] {
            answer = {};
            return get("").html.find("Hostile") != std::string::npos;
        }));
        link = test::linkOf(get("").html, "Hostile");
    }

    /// `page` as a link says it. `whileWaiting` runs until the answer is there.
    WebAnswer get(const std::string& page, const std::function<void()>& whileWaiting = {})
    {
        answer.reset();
        loop.post([&] { pages->answer(request(page)).then([this](WebAnswer&& given) { answer = std::move(given); }); });
        EXPECT_TRUE(test::runUntil(loop, [&] {
            if (whileWaiting && !answer) whileWaiting();
            return answer.has_value();
        })) << page;
        return answer.value_or(WebAnswer {});
    }

    static media::WebRequest request(const std::string& page)
    {
        const auto question = page.find('?');
        media::WebRequest result { page.substr(0, question), {} };
        auto rest = fn::String(question == std::string::npos ? "" : page.substr(question + 1));
        for (const auto& pair : rest.split('&')) {
            const auto text = std::string(pair.view());
            const auto equals = text.find('=');
            if (equals != std::string::npos)
                result.parameters[text.substr(0, equals)] = decoded(text.substr(equals + 1));
        }
        return result;
    }

    static std::string decoded(const std::string& text)
    {
        std::string result;
        for (std::size_t i = 0; i < text.size(); ++i) {
            const bool isCode = text[i] == '%';
            result += isCode ? static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16)) : text[i];
            if (isCode) i += 2;
        }
        return result;
    }

    std::string linkTo(const Value& action) const { return link + "&action=" + *media::actionText(action); }

    fn::ManualClock clock;
    fn::uv::Loop loop { clock };
    ipc::Dispatcher dispatcher { loop, fn::Duration::seconds(20) };
    std::optional<test::Client> publisher;
    std::optional<test::Client> browser;
    fn::AutoPtr<media::InspectorPages> pages;
    std::optional<WebAnswer> answer;
    std::string link;
};

TEST_F(InspectorPagesTest, WhatAnInspectorSaysIsTextAndItsActionsComeBackAsTheyWere)
{
    EXPECT_NE(get("").html.find("&lt;i&gt;Hostile&lt;/i&gt;"), std::string::npos);
    const auto page = get(link).html;
    for (const auto* markup : { "<script", "<i>", "<b>", " onclick='", "\x1b", "\xff" }) {
        EXPECT_EQ(page.find(markup), std::string::npos) << markup;
    }
    EXPECT_NE(page.find("\ufffd\ufffd cut \ufffd\ufffd control \ufffd[2J"), std::string::npos);
    EXPECT_NE(page.find("<li>too long</li>"), std::string::npos) << "Nobody could follow the link.";
    EXPECT_NE(page.find(" more.</p>"), std::string::npos);
    EXPECT_LT(page.size(), 3'000'000u);
    EXPECT_EQ(page.find("end of a long line"), std::string::npos);

    const auto next = get(test::linkOf(page, "onclick")).html;
    const auto action = Value::array({ "a", 1.5, fn::ByteArray("\xff\0") }).toString();
    std::string expected;
    for (const char character : std::string(action.view()))
        expected += character == '"' ? "&quot;" : std::string(1, character);
    EXPECT_NE(next.find("at " + expected + " from nil"), std::string::npos) << next;
}

TEST_F(InspectorPagesTest, ARedirectionIsFollowedAndItsTargetIsWhereReloadLeads)
{
    const auto page = get(linkTo("elsewhere")).html;
    EXPECT_NE(page.find("at 7 from elsewhere"), std::string::npos) << page;
    EXPECT_NE(get(test::linkOf(page, "Reload")).html.find("at 7 from nil"), std::string::npos);
}

TEST_F(InspectorPagesTest, WhatIsBrokenSlowOrDeadIsToldAndNothingElseSuffers)
{
    const auto thrown = get(linkTo("throw"));
    EXPECT_EQ(thrown.status, 502);
    EXPECT_NE(thrown.html.find("no &lt;b&gt;page&lt;/b&gt;"), std::string::npos) << thrown.html;
    EXPECT_EQ(get(linkTo("circle")).status, 502);
    EXPECT_EQ(get(linkTo("silent"), [this] { clock.advance(fn::Duration::milliseconds(100)); }).status, 504);
    EXPECT_EQ(get(link).status, 200);

    publisher->worker->stop();
    test::runTurns(loop);
    EXPECT_EQ(get(link).status, 404);
    EXPECT_EQ(get("").status, 200);
}

} // namespace
