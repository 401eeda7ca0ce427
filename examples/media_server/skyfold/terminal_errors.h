#pragma once

namespace media {

/// Keeps what any library and module writes to standard error apart from the progress bar on the same terminal: while it lives
/// each line begins where the bar was. One at a time, made before other processes are started; on no terminal it does nothing.
class TerminalErrors {
public:
    TerminalErrors();
    TerminalErrors(const TerminalErrors&) = delete;
    ~TerminalErrors(); ///< Waits until what was written has reached the terminal, a second at most.

private:
    const bool _isActive;
};

} // namespace media
