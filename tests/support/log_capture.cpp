#include "support/log_capture.h"
#include "foundation/logging/category_manager.h"
#include <algorithm>
#include <fmt/format.h>

namespace test {

class LogCapture::Sink final : public fn::logging::Sink {
public:
    explicit Sink(int priority) : _priority(priority) { }
    int threshold(const fn::logging::Category&) const override { return _priority; }
    void logMessage(const fn::logging::Category& category, const fn::logging::Message& message) override
    {
        auto line = fmt::format("{} {} {}", message.priority, category.name().view(), message.text.view());
        const std::lock_guard guard(lock);
        lines.push_back(std::move(line));
    }

    std::mutex lock;
    std::vector<std::string> lines;

private:
    const int _priority;
};

LogCapture::LogCapture(int priority) : _sink(fn::makeAuto<Sink>(priority))
{
    fn::logging::CategoryManager::instance().addSink(_sink);
}

LogCapture::~LogCapture() { fn::logging::CategoryManager::instance().removeSink(_sink); }

std::vector<std::string> LogCapture::lines() const
{
    const std::lock_guard guard(_sink->lock);
    return _sink->lines;
}

bool LogCapture::contains(std::string_view part) const
{
    return std::ranges::any_of(lines(), [&](const auto& line) { return line.find(part) != std::string::npos; });
}

} // namespace test
