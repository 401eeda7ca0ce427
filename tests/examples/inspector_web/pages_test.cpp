// The pages of inspectors that mean no good, through a real hub. What can break here: text that becomes HTML, a link that is
// too long to be followed or leads elsewhere, an inspector that is broken, slow or dead and takes the browser along.
#include "base/exceptions.h"
#include "core/ipc/hub_fixture.h"
#include "core/ipc_services/inspector/inspection_result_writer.h"
#include "core/ipc_services/inspector/register_inspector_registry.h"
#include "inspector_web/action_text.h"
#include "inspector_web/inspector_pages.h"
#include "web_client.h"
#include <gmock/gmock.h>
#include <regex>

namespace {

using fn::Value;
using media::WebAnswer;
using testing::HasSubstr;

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

class InspectorPagesTest : public test::HubTest {
protected:
    InspectorPagesTest()
    {
        loop.post([this] {
            core::registerInspectorRegistry(dispatcher->worker());
            media::publish(*publisher->worker, "<i>Hostile</i>", fn::makeAuto<HostileInspector>());
        });
        settle();
        link = test::linkOf(get("").html, "Hostile");
    }

    /// What is shown for `page`, as a link says it, at the latest when `wait` is over.
    WebAnswer get(const std::string& page, fn::Duration wait = {})
    {
        const auto answer = std::make_shared<std::optional<WebAnswer>>();
        loop.post([&] { pages->answer(request(page)).then([=](WebAnswer&& given) { *answer = std::move(given); }); });
        settle();
        pass(wait);
        EXPECT_TRUE(test::runUntil(loop, [&] { return answer->has_value(); })) << page;
        return answer->value_or(WebAnswer {});
    }

    static media::WebRequest request(const std::string& page)
    {
        static const std::regex pair("[?&]([^=&]*)=([^&]*)");
        static const std::regex code("%(..)");
        media::WebRequest result { page.substr(0, page.find('?')), {} };
        for (std::sregex_iterator at(page.begin(), page.end(), pair), end; at != end; ++at) {
            auto value = (*at)[2].str();
            for (std::smatch found; std::regex_search(value, found, code);)
                value.replace(found.position(), 3, 1, static_cast<char>(std::stoi(found[1], nullptr, 16)));
            result.parameters[(*at)[1]] = value;
        }
        return result;
    }

    std::string linkTo(const Value& action) const { return link + "&action=" + *media::actionText(action); }

    std::unique_ptr<test::Client> publisher = client("Publisher"), browser = client("Browser");
    fn::AutoPtr<media::InspectorPages> pages = fn::makeAuto<media::InspectorPages>(*browser->worker);
    std::string link;
};

TEST_F(InspectorPagesTest, WhatAnInspectorSaysIsTextAndItsActionsComeBackAsTheyWere)
{
    EXPECT_THAT(get("").html, HasSubstr("&lt;i&gt;Hostile&lt;/i&gt;"));
    const auto page = get(link).html;
    for (const auto* markup : { "<script", "<i>", "<b>", " onclick='", "\x1b", "\xff", "end of a long line" })
        EXPECT_EQ(page.find(markup), std::string::npos) << markup;
    for (const auto* text : { "\ufffd\ufffd cut \ufffd\ufffd control \ufffd[2J", "<li>too long</li>", " more.</p>" })
        EXPECT_NE(page.find(text), std::string::npos) << text;
    EXPECT_LT(page.size(), 3'000'000u);
    const auto action = Value::array({ "a", 1.5, fn::ByteArray("\xff\0") }).toString().toStdString();
    const auto expected = std::regex_replace("at " + action + " from nil", std::regex("\""), "&quot;");
    EXPECT_THAT(get(test::linkOf(page, "onclick")).html, HasSubstr(expected));
}

TEST_F(InspectorPagesTest, ARedirectionIsFollowedAndWhatIsBrokenSlowOrDeadIsTold)
{
    const auto page = get(linkTo("elsewhere")).html;
    EXPECT_THAT(page, HasSubstr("at 7 from elsewhere"));
    EXPECT_THAT(get(test::linkOf(page, "Reload")).html, HasSubstr("at 7 from nil"));
    const auto thrown = get(linkTo("throw"));
    EXPECT_EQ(thrown.status, 502);
    EXPECT_THAT(thrown.html, HasSubstr("no &lt;b&gt;page&lt;/b&gt;"));
    EXPECT_EQ(get(linkTo("circle")).status, 502);
    EXPECT_EQ(get(linkTo("silent"), fn::Duration::seconds(20)).status, 504);
    EXPECT_EQ(get(link).status, 200);
    publisher->worker->stop();
    settle();
    EXPECT_EQ(get(link).status, 404);
    EXPECT_EQ(get("").status, 200);
}

} // namespace
