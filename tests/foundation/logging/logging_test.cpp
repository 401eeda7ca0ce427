// What can break here: a message lost or formatted for nobody; a sink used after its removal; lines forged by a message's text.
#include "foundation/logging/logging.h"
#include "foundation/work_context.h"
#include "support/log_capture.h"
#include <atomic>
#include <gmock/gmock.h>
#include <thread>

namespace {

using namespace fn::logging;
using testing::MatchesRegex;

constexpr const char* site = "libs/test";

CategoryManager& manager() { return CategoryManager::instance(); }

/// Counts what it is given; for several threads at once.
struct Counter final : Sink {
    Counter() { ++alive; }
    ~Counter() override { --alive; }
    void logMessage(const Category&, const Message&) override { ++count; }

    std::atomic<int> count { 0 };
    static inline std::atomic<int> alive { 0 };
};

TEST(Logging, LosesNothingWhileSinksComeAndGo)
{
    std::atomic<int> written { 0 };
    std::atomic<bool> done { false };
    const auto permanent = fn::makeAuto<Counter>();
    manager().addSink(permanent);
    std::vector<std::jthread> writers;
    for (int t = 0; t < 4; ++t) {
        writers.emplace_back([t, &written, &done] {
            const auto& own = manager().getCategory("logging.thread" + fn::String::number(t));
            while (!done) FN_LOG_TO(own, 7, Tag(), site, "{}", ++written);
        });
    }
    for (int i = 0; i < 500; ++i) {
        const auto passing = fn::makeAuto<Counter>();
        manager().addSink(passing);
        if (i % 10 == 0) manager().getCategory("logging.new" + fn::String::number(i));
        manager().removeSink(passing);
    }
    done = true;
    writers.clear();
    EXPECT_EQ(permanent->count, written);
    EXPECT_EQ(Counter::alive, 1) << "removed sinks go";
    manager().removeSink(permanent);
}

TEST(Logging, WritesWarningsToStandardErrorWhileThereIsNoSinkAndLetsNoTextPassForAMessage)
{
    testing::internal::CaptureStderr();
    const auto& category = manager().getCategory("logging.none");
    int evaluated = 0;
    const fn::ScopedContext traced(fn::WorkContext().withTrace(0xabc));
    FN_LOG_TO(category, Warning, Tag(), site, "a\tb\r\nERR \x1b[2J\x7f ü\n\nend\n");
    FN_LOG_TO(category, Fixme, Tag(), site, "unseen {}", ++evaluated);
    write(category, Fixme, Tag(), { site, 1, "f" }, "unseen");
    const auto text = testing::internal::GetCapturedStderr();
    const auto header = text.substr(0, text.find('[', 20));
    const std::string indent(header.size(), ' ');
    EXPECT_THAT(header, MatchesRegex("[0-9:]{8}\\.[0-9]{3} WRN logging\\.none: "));
    EXPECT_EQ(text.substr(header.size()),
        "[0000000000000abc] a\tb\\x0d\n" + indent + "ERR \\x1b[2J\\x7f ü\n" + indent + "\n" + indent + "end\n");
    EXPECT_EQ(evaluated, 0) << "what nobody wants costs nothing";
}

TEST(Logging, FormatsTextsOfAnyLength)
{
    const test::LogCapture log;
    const auto& category = manager().getCategory("logging.format");
    for (const std::size_t size : { 0, 511, 512, 3000 }) {
        const std::string text(size, 'x');
        FN_LOGF_TO(category, 4, Tag(), site, "%s", text.c_str());
        EXPECT_EQ(log.lines().back(), "4 logging.format " + text);
        FN_LOG_TO(category, 4, Tag(), site, "{}|{}", text, 8);
        EXPECT_EQ(log.lines().back(), "4 logging.format " + text + "|8");
    }
}

} // namespace
