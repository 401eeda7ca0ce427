#pragma once
#include <cstdint>
#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

namespace chaos {

/// One process of the system, held so that its id cannot come to mean another one.
class Target {
public:
    explicit Target(pid_t id); ///< Check whose it is after this.
    Target(Target&& other) noexcept;
    Target& operator=(Target&& other) noexcept;
    ~Target();

    pid_t id() const { return _id; }
    bool send(int signal) const; ///< False: it has gone.

private:
    pid_t _id;
    int _file;
};

/// What runs: `moduleOf` each living process, "" for one that is no module (yet).
std::vector<pid_t> childrenOf(pid_t parent);
std::string moduleOf(pid_t process);
std::size_t privateMemory(pid_t process); ///< Bytes that are its own and in memory.
std::size_t openFiles(pid_t process);

/// All that this process starts and what those leave behind: whose parent dies becomes a child of this process. Ends
/// them all when it goes.
class Family {
public:
    Family();
    Family(const Family&) = delete;
    ~Family();

    pid_t start(const std::vector<std::string>& command, const std::filesystem::path& output);
    std::size_t reap(); ///< How many are left.
    int hubStatus() const { return _hubStatus; } ///< As of waitpid; -1 while it runs.

private:
    pid_t _hub = 0;
    int _hubStatus = -1;
};

} // namespace chaos
