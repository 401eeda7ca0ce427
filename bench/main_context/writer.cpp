#include "main_context/writer.h"
#include "driver/driver.h"
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/eventfd.h>
#include <unistd.h>

namespace bench {
Writer::Writer() : _event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), _thread([this] { run(); })
{
    if (_event < 0) fail("no eventfd");
}

Writer::~Writer()
{
    _isOver = true;
    _asked.release();
    _thread.join();
    close(_event);
}

Nanoseconds Writer::take()
{
    const auto end = now();
    std::uint64_t writes = 0;
    if (read(_event, &writes, sizeof(writes)) != sizeof(writes) || writes != 1) fail("heard of what was not written");
    return end - Nanoseconds(_written.load());
}

void Writer::run()
{
    for (_asked.acquire(); !_isOver; _asked.acquire()) {
        std::this_thread::sleep_for(pause);
        const std::uint64_t one = 1;
        _written = now().count();
        if (write(_event, &one, sizeof(one)) != sizeof(one)) fail("can not write to an eventfd");
    }
}

std::uint64_t waits()
{
    std::uint64_t sum = 0;
    const auto self = std::to_string(gettid());
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (task.path().filename() == self) continue;
        std::ifstream status(task.path() / "status");
        constexpr std::string_view key = "voluntary_ctxt_switches:";
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with(key)) sum += std::stoull(line.substr(key.size()));
        }
    }
    return sum;
}

} // namespace bench
