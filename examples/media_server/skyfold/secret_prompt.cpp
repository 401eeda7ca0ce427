#include "skyfold/secret_prompt.h"
#include "base/exceptions.h"
#include "foundation/io/file.h"
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <poll.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

namespace media {
namespace {

constexpr std::size_t longest = 4096;
constexpr std::array endingSignals { SIGINT, SIGTERM, SIGHUP, SIGQUIT };

volatile sig_atomic_t received = 0;

fn::RuntimeException failure(const char* text) { return fn::RuntimeException(text, fn::Exception::StackTrace::None); }

/// A terminal that shows nothing, and signals that are seen only where `poll()` waits.
class Silence {
public:
    Silence()
    {
        sigset_t blocked;
        sigemptyset(&blocked);
        for (const int signal : endingSignals) sigaddset(&blocked, signal);
        sigaddset(&blocked, SIGTSTP); // Stopped, it would leave the terminal silent.
        sigprocmask(SIG_BLOCK, &blocked, &_previousMask);
        struct sigaction action = {};
        action.sa_handler = [](int signal) { received = signal; };
        for (std::size_t i = 0; i < endingSignals.size(); ++i) {
            sigaction(endingSignals[i], nullptr, &_previous[i]);
            if (_previous[i].sa_handler != SIG_IGN)
                sigaction(endingSignals[i], &action, nullptr); // Else it ends nothing.
        }
        action.sa_handler = SIG_IGN; // Where nobody reads the question.
        sigaction(SIGPIPE, &action, &_previousPipe);
        _isTerminal = tcgetattr(STDIN_FILENO, &_shown) == 0;
        if (!_isTerminal) return;
        termios silent = _shown;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHOE | ECHOK | ECHONL);
        _hidesInput = tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent) == 0;
    }
    Silence(const Silence&) = delete;
    ~Silence()
    {
        if (_isTerminal) tcsetattr(STDIN_FILENO, TCSAFLUSH, &_shown);
        for (std::size_t i = 0; i < endingSignals.size(); ++i) sigaction(endingSignals[i], &_previous[i], nullptr);
        sigaction(SIGPIPE, &_previousPipe, nullptr);
        sigprocmask(SIG_SETMASK, &_previousMask, nullptr);
        if (_isTerminal) std::fputs("\n", stderr); // The user's own was not shown.
    }

    bool isTerminal() const { return _isTerminal; }
    bool hidesInput() const { return _hidesInput; }

    /// Waits for input. False when a signal came first.
    bool await() const
    {
        sigset_t mask = _previousMask;
        for (const int signal : endingSignals) sigdelset(&mask, signal);
        pollfd input { STDIN_FILENO, POLLIN, 0 };
        while (ppoll(&input, 1, nullptr, &mask) < 0 && received == 0) { }
        return received == 0;
    }

private:
    sigset_t _previousMask {};
    std::array<struct sigaction, endingSignals.size()> _previous {};
    struct sigaction _previousPipe { };
    termios _shown {};
    bool _isTerminal = false;
    bool _hidesInput = true;
};

/// False when a signal came first.
bool readLine(const Silence& silence, std::string& line)
{
    line.reserve(longest + 1); // Grown, it would leave copies behind.
    for (;;) {
        if (!silence.await()) return false;
        char c = 0;
        const auto count = ::read(STDIN_FILENO, &c, 1); // What follows the line is somebody else's.
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fn::File::handleErrno("standard input");
        if (count == 0 || c == '\n') return true;
        if (line.size() == longest) throw failure("The secret is too long");
        line.push_back(c);
    }
}

} // namespace

std::string askForSecret(const std::string& question)
{
    std::string line;
    bool isComplete = false;
    try {
        const Silence silence;
        if (!silence.hidesInput()) throw failure("The terminal would show what is typed");
        if (silence.isTerminal()) std::fprintf(stderr, "%s: ", question.c_str());
        isComplete = readLine(silence, line);
    } catch (...) {
        wipe(line);
        throw;
    }
    if (!isComplete) {
        wipe(line);
        raise(received); // With its own effect again.
        throw failure("Interrupted"); // That of a program that lives on.
    }
    if (line.ends_with('\r')) line.pop_back();
    if (line.empty()) throw failure("No secret was given");
    return line;
}

void wipe(std::string& secret) noexcept { explicit_bzero(secret.data(), secret.size()); }

} // namespace media
