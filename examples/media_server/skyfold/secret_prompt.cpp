#include "skyfold/secret_prompt.h"
#include "base/exceptions.h"
#include "foundation/uv/signal_watcher.h"
#include "skyfold/ending_signals.h"
#include "skyfold/read_line.h"
#include <csignal>
#include <cstdio>
#include <string.h>
#include <termios.h>
#include <unistd.h>

namespace media {
namespace {

fn::RuntimeException failure(const char* text) { return fn::RuntimeException(text, fn::Exception::StackTrace::None); }

/// Keeps the terminal from showing typed text. Does nothing if standard input is no terminal.
class Silence {
public:
    explicit Silence(fn::uv::Loop& loop) : _stop(loop, SIGTSTP, [] {}), _quit(loop, SIGQUIT, [] {})
    {
        _isTerminal = tcgetattr(STDIN_FILENO, &_shown) == 0;
        if (!_isTerminal) return;
        termios silent = _shown;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHOE | ECHOK | ECHONL);
        if (tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent) != 0) throw failure("The terminal would show what is typed");
    }
    ~Silence()
    {
        if (!_isTerminal) return;
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &_shown);
        std::fputs("\n", stderr); // The user's line end was not shown.
    }

    bool isTerminal() const { return _isTerminal; }

private:
    // The signals' own effect would leave the terminal without echo.
    const fn::uv::SignalWatcher _stop;
    const fn::uv::SignalWatcher _quit;
    termios _shown {};
    bool _isTerminal = false;
};

} // namespace

Secret::~Secret() { explicit_bzero(text.data(), text.size()); }

int askForSecret(const std::string& question, Secret& secret)
{
    auto& loop = fn::RunLoop::defaultLoop().uvLoop();
    auto& text = secret.text;
    {
        const Silence silence(loop);
        if (silence.isTerminal()) std::fprintf(stderr, "%s: ", question.c_str());
        loop.post([&] {
            readLine().then([&](std::optional<std::string>&& line) {
                if (line) text = std::move(*line);
                loop.stop();
            });
        });
        if (const int signal = runUntilSignal(loop)) return signal;
    }
    if (text.ends_with('\r')) text.pop_back();
    if (text.empty()) throw failure("No secret was given");
    if (text.size() >= longestLine) throw failure("The secret is too long");
    return 0;
}

} // namespace media
