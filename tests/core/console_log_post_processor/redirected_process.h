#pragma once
#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>

namespace test {

/// A process made of this one (which has one thread) that does `body`, with a pipe as its standard error, and then waits
/// until it is released. Failed expectations in it give it the status 1. Killed at the latest when this goes.
class RedirectedProcess {
public:
    explicit RedirectedProcess(const std::function<void()>& body);
    RedirectedProcess(const RedirectedProcess&) = delete;
    ~RedirectedProcess();

    /// What has come out of its standard error, once that ends in `end`, or when nothing more comes within the bound.
    const std::string& readUntil(std::string_view end);

    /// Whether it waits for this side to read: the pipe is full. False beyond the bound.
    bool awaitFullPipe() const;

    /// Lets nobody read its standard error any more.
    void closeReader();

    /// The pipe that was its standard error at first, as /proc shows descriptors of it.
    std::string pipeName() const;

    /// Lets it end. Exit status, or 128 + signal; nothing beyond the bound.
    std::optional<int> finish();

private:
    pid_t _pid = -1;
    int _output = -1;
    int _release = -1;
    std::string _text;
};

} // namespace test
