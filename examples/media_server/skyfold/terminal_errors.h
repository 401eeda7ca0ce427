#pragma once

namespace media {

/// Keeps lines that libraries and modules write to standard error apart from the progress bar on the same terminal: each line
/// begins in place of the bar. One object at a time, made before other processes start; does nothing without a terminal.
class TerminalErrors {
public:
    TerminalErrors();
    TerminalErrors(const TerminalErrors&) = delete;
    ~TerminalErrors(); ///< Waits until written lines have reached the terminal, a second at most.

private:
    const bool _isActive;
};

} // namespace media
