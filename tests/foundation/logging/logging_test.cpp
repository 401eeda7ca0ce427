// What can break here: a message lost, given to a sink that does not want it, or formatted for nobody; a sink that is used
// after its removal; lines forged by the text of a message.
#include "foundation/logging/console_sink.h"
#include "foundation/logging/log_console_target.h"
#include "foundation/logging/logging.h"
#include "support/expectations.h"
#include <atomic>
#include <gmock/gmock.h>
#include <thread>

namespace {

using namespace fn::logging;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

constexpr const char* site = "libs/test";

CategoryManager& manager() { return CategoryManager::instance(); }

class Recorder final : public Sink {
public:
    static fn::AutoPtr<Recorder> add(int threshold, const char* onlyCategory = "")
    {
        auto recorder = fn::makeAuto<Recorder>(threshold, onlyCategory);
        manager().addSink(recorder);
        return recorder;
    }
    Recorder(int threshold, const char* onlyCategory) : level(threshold), _onlyCategory(onlyCategory) { }

    int threshold(const Category& category) const override
    {
        return _onlyCategory.empty() || category.name() == _onlyCategory ? level : 0;
    }
    void logMessage(const Category& category, const Message& message) override
    {
        ++count;
        if (fails) throw std::runtime_error("sink");
        texts.push_back(fmt::format("{} {} {}", category.name(), message.priority, message.text));
    }

    int level;
    int count = 0;
    bool fails = false;
    std::vector<std::string> texts;

private:
    const fn::String _onlyCategory;
};

TEST(Logging, AsksForArgumentsOnlyWhereSomeSinkWantsThem)
{
    int evaluated = 0;
    const auto logAll = [&](const Category& category) {
        for (int priority = Error; priority <= Trace; ++priority) {
            FN_LOG_TO(category, priority, Tag(), site, "{}", ++evaluated);
        }
        return std::exchange(evaluated, 0);
    };
    const auto& early = manager().getCategory("logging.early");
    const auto general = Recorder::add(Info);
    const auto special = Recorder::add(Debug, "logging.late");
    const auto& late = manager().getCategory("logging.late");
    EXPECT_EQ(&late, &manager().getCategory("logging.late"));
    EXPECT_EQ(late.parent(), early.parent());
    EXPECT_EQ(late.parent()->name(), "logging");
    EXPECT_EQ(logAll(early), 4);
    EXPECT_EQ(logAll(late), 5);
    EXPECT_EQ(general->count, 8);
    EXPECT_EQ(special->count, 5);

    general->level = 0;
    EXPECT_EQ(logAll(early), 4) << "asked again only at reload()";
    manager().reload();
    EXPECT_EQ(logAll(early), 0);
    manager().removeSink(special);
    EXPECT_EQ(logAll(late), 0) << "a sink that wants nothing is a sink";
    manager().removeSink(general);
    EXPECT_EQ(special->count, 5);
}

TEST(Logging, WritesWarningsToStandardErrorWhileThereIsNoSink)
{
    testing::internal::CaptureStderr();
    const auto& category = manager().getCategory("logging.none");
    FN_LOG_TO(category, Warning, Tag(), site, "seen");
    FN_LOG_TO(category, Fixme, Tag(), site, "unseen");
    write(category, Fixme, Tag(), { site, 1, "f" }, "unseen");
    EXPECT_THAT(
        testing::internal::GetCapturedStderr(), MatchesRegex("[0-9:]{8}\\.[0-9]{3} WRN logging\\.none: seen\n"));
}

TEST(Logging, FormatsTextsOfAnyLengthAndReportsBadFormats)
{
    const auto recorder = Recorder::add(Trace);
    const auto& category = manager().getCategory("logging.format");
    const std::string longText(3000, 'x');
    FN_LOGF_TO(category, 4, Tag(), site, "%s|%i", longText.c_str(), 7);
    FN_LOGF_TO(category, 4, Tag(), site, "%s", std::string(511, 'y').c_str());
    FN_LOGF_TO(category, 4, Tag(), site, "%s", std::string(512, 'z').c_str());
    FN_LOG_TO(category, 4, Tag(), site, "{} {}", longText, fn::String("text"));
    writeFormatted(category, 4, Tag(), { site, 1, "f" }, "{} {}", fmt::make_format_args(1));
    manager().removeSink(recorder);
    const std::string start = "logging.format 4 ";
    EXPECT_THAT(recorder->texts,
        ElementsAre(start + longText + "|7", start + std::string(511, 'y'), start + std::string(512, 'z'),
            start + longText + " text", HasSubstr("Could not format the message \"{} {}\"")));
}

TEST(Logging, KeepsAFailingSinkFromTheOthers)
{
    const test::ExpectUnhandled unhandled;
    const auto failing = Recorder::add(Error, "logging.failing"), working = Recorder::add(Error);
    failing->fails = true;
    FN_LOG_TO(manager().getCategory("logging.failing"), 1, Tag(), site, "text");
    manager().removeSink(failing);
    manager().removeSink(working);
    EXPECT_THAT(unhandled.messages(), ElementsAre("sink"));
    EXPECT_THAT(working->texts, testing::Contains("logging.failing 1 text"));
}

TEST(ConsoleSink, ShowsLineEndsAndLetsNoTextPassForAMessage)
{
    const auto console = fn::makeAuto<ConsoleSink>(Debug);
    const auto& category = manager().getCategory("logging.console");
    manager().addSink(console);
    testing::internal::CaptureStderr();
    FN_LOG_TO(category, Debug, Tag(), site, "a\tb\r\nERR \x1b[2J\x7f ü\n\nend\n");
    FN_LOG_TO(category, Log, Tag(), site, "unseen");
    const auto text = testing::internal::GetCapturedStderr();
    manager().removeSink(console);
    const auto header = text.substr(0, text.find('a', 20));
    const std::string indent(header.size(), ' ');
    EXPECT_THAT(header, MatchesRegex("[0-9:]{8}\\.[0-9]{3} DBG logging\\.console: "));
    EXPECT_EQ(text.substr(header.size()),
        "a\tb\\x0d\n" + indent + "ERR \\x1b[2J\\x7f ü\n" + indent + "\n" + indent + "end\n");
}

TEST(LogConsoleTarget, LetsNoTextCommandTheTerminal)
{
    const auto target = fn::makeAuto<fn::LogConsoleTarget>();
    testing::internal::CaptureStderr();
    target->write(fn::String(std::string_view("a\tb\r\n\x1b]0;title\x07\0\b\x7f\xc2\x9b\x32J\r\n", 24)));
    target->write("ü € \xc2\xa0 \x9b \xff \xc2");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
        "a\tb\r\n\\x1b]0;title\\x07\\x00\\x08\\x7f\\x9b2J\r\nü € \xc2\xa0 \x9b \xff \xc2")
        << "all other bytes as they are";
}

// For several threads at once.
class Counter final : public Sink {
public:
    explicit Counter(std::atomic<int>& alive) : _alive(alive) { ++_alive; }
    void logMessage(const Category&, const Message&) override { ++count; }
    std::atomic<int> count { 0 };

private:
    ~Counter() override { --_alive; }
    std::atomic<int>& _alive;
};

TEST(Logging, LosesNothingWhileSinksComeAndGo)
{
    std::atomic<int> alive { 0 }, written { 0 };
    std::atomic<bool> done { false };
    const auto permanent = fn::makeAuto<Counter>(alive);
    manager().addSink(permanent);
    std::vector<std::jthread> writers;
    for (int t = 0; t < 4; ++t) {
        writers.emplace_back([t, &written, &done] {
            const auto& own = manager().getCategory(fn::String("logging.thread") + fn::String::number(t));
            while (!done) FN_LOG_TO(own, 7, Tag(), site, "{}", ++written);
        });
    }
    for (int i = 0; i < 500; ++i) {
        const auto passing = fn::makeAuto<Counter>(alive);
        manager().addSink(passing);
        if (i % 10 == 0) manager().getCategory(fn::String("logging.new") + fn::String::number(i));
        manager().removeSink(passing);
    }
    done = true;
    writers.clear();
    EXPECT_EQ(permanent->count, written);
    EXPECT_EQ(alive, 1) << "removed sinks go";
    manager().removeSink(permanent);
}

} // namespace
