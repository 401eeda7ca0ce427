#pragma once
#include "base/auto_ptr.h"
#include "foundation/logging/sink.h"
#include <string>
#include <vector>

namespace test {

/// Collects log messages up to a priority while it lives: "priority category text".
class LogCapture {
public:
    explicit LogCapture(int priority = 7);
    ~LogCapture();
    std::vector<std::string> lines() const;
    bool contains(std::string_view part) const;

private:
    class Sink;
    fn::AutoPtr<Sink> _sink;
};

} // namespace test
