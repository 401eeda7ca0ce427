#pragma once
#include "support/forked_child.h"
#include <array>
#include <string>
#include <vector>

namespace test {

/// A program that a test starts, with its standard output in a pipe. Killed at the latest when this goes.
class ChildProcess : public ForkedChild {
public:
    /// `arguments[0]` is the path, or the name of a program of this build. What cannot be started has status 127.
    explicit ChildProcess(std::vector<std::string> arguments);
    ~ChildProcess();

    /// The next line of its standard output; nothing at its end or beyond the bound.
    std::optional<std::string> readLine(std::chrono::milliseconds bound = std::chrono::seconds(20));

private:
    ChildProcess(const std::vector<std::string>& arguments, std::array<int, 2> pipe);

    const int _output;
    std::string _unread;
};

} // namespace test
