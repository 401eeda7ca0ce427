#pragma once
#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

namespace chaos {

void runHub(); ///< The main process. Ends with its process alone.

// Of living processes. What has gone has no children, no name, no memory and no files.
std::vector<pid_t> childrenOf(pid_t parent);
std::string moduleOf(pid_t process); ///< "" if it is none, or not yet.
std::int64_t privateKilobytes(pid_t process); ///< In memory; the journal, a shared file, is not in it.
std::ptrdiff_t openFiles(pid_t process);

/// The main process, and all that it leaves behind: whose parent dies becomes a child of this process. Ends them all when it goes.
class Family {
public:
    explicit Family(const std::filesystem::path& output);
    Family(const Family&) = delete;
    ~Family();

    pid_t hub() const { return _hub; }
    bool hasHubEnded() const { return _hasHubEnded; }
    /// Signals the hub, or what still is that module. A number that means another process by now is not signalled.
    void send(pid_t process, const std::string& name, int signal) const;
    bool reap(); ///< Whether anybody is left.

private:
    pid_t _hub;
    bool _hasHubEnded = false;
};

} // namespace chaos
