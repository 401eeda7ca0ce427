#pragma once
#include "foundation/logging/log_target.h"
#include "foundation/logging/sink.h"
#include <string>
#include <vector>

namespace test {

/// Keeps what is written. For one thread.
class RecordingTarget final : public fn::LogTarget {
public:
    void write(const fn::String& text) override { entries.push_back(text.toStdString()); }
    std::vector<std::string> entries;

private:
    ~RecordingTarget() override = default;
};

inline fn::logging::Message message(int priority, fn::String text = "text", fn::String tag = {})
{
    fn::logging::Message message;
    message.priority = priority;
    message.tag.text = std::move(tag);
    message.text = std::move(text);
    return message;
}

} // namespace test
