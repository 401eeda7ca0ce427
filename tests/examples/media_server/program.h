#pragma once
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace test {

inline constexpr const char* skyfold = TEST_BINARY_DIR "/programs/skyfold";

/// Whether `condition` comes true within a bound; looks again and again.
bool await(const std::function<bool()>& condition);

/// A run of a program, in a session of its own. All that it started is killed when this goes.
class Program {
public:
    enum class Streams {
        Files, ///< Nothing comes in; output and errors are kept.
        Terminal, ///< Standard input, output and error are one.
    };

    /// `command[0]` is a path. Standard input is empty, or the terminal.
    explicit Program(std::vector<std::string> command, Streams streams = Streams::Files);
    Program(const Program&) = delete;
    ~Program();

    void type(std::string_view text) const; ///< On its terminal.
    void signal(int number) const; ///< To the program and all that it started, as a terminal does it.

    /// Waits until this module has a process. Throws beyond a bound.
    pid_t awaitModule(const std::string& name) const;

    /// False where this is not written behind `from` within a bound.
    bool awaitOutput(std::string_view text, std::size_t from = 0);

    /// Waits for the end. The exit code, 128 + the signal that ended it, or -1 beyond a bound. Fails the test where a process is
    /// left behind.
    int wait();

    std::string output(); ///< What it has written to its standard output.
    std::string errors() const;

private:
    std::vector<pid_t> processes() const;

    pid_t _pid = -1;
    bool _hasEnded = false;
    const bool _hasTerminal;
    int _output = -1; // A nameless file, or the terminal's other side.
    int _errors = -1;
    std::string _terminalText;
};

} // namespace test
