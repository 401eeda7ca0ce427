#include "support/child_process.h"
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

namespace test {
namespace {

std::array<int, 2> makePipe()
{
    std::array<int, 2> ends {};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
    return ends;
}

bool become(std::vector<std::string> arguments)
{
    if (!arguments[0].contains('/')) arguments[0].insert(0, TEST_BINARY_DIR "/programs/");
    std::vector<char*> pointers;
    for (auto& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    ::execv(pointers[0], pointers.data());
    ::_exit(127);
}

} // namespace

ChildProcess::ChildProcess(std::vector<std::string> arguments) : ChildProcess(arguments, makePipe()) { }

ChildProcess::ChildProcess(const std::vector<std::string>& arguments, std::array<int, 2> pipe)
    : ForkedChild([&] { return ::dup2(pipe[1], STDOUT_FILENO) >= 0 && become(arguments); }),
      _output(pipe[0])
{
    ::close(pipe[1]);
}

ChildProcess::~ChildProcess() { ::close(_output); }

std::optional<std::string> ChildProcess::readLine(std::chrono::milliseconds bound)
{
    const auto end = std::chrono::steady_clock::now() + bound;
    for (;;) {
        if (const auto newline = _unread.find('\n'); newline != std::string::npos) {
            auto line = _unread.substr(0, newline);
            _unread.erase(0, newline + 1);
            return line;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        char buffer[4096];
        if (left.count() <= 0 || !awaitReadable(_output, left)) return std::nullopt;
        const auto count = ::read(_output, buffer, sizeof(buffer));
        if (count <= 0) return std::nullopt;
        _unread.append(buffer, static_cast<std::size_t>(count));
    }
}

} // namespace test
