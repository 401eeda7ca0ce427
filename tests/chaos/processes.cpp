#include "processes.h"
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace chaos {
namespace {

std::filesystem::path folderOf(pid_t process) { return "/proc/" + std::to_string(process); }

} // namespace

std::vector<pid_t> childrenOf(pid_t parent)
{
    std::vector<pid_t> children;
    std::ifstream list(folderOf(parent) / "task" / std::to_string(parent) / "children");
    for (pid_t child = 0; list >> child;) children.push_back(child);
    return children;
}

std::string moduleOf(pid_t process)
{
    std::ifstream file(folderOf(process) / "cmdline");
    std::string word;
    std::getline(file, word, '\0');
    std::getline(file, word, '\0');
    const std::filesystem::path path(word);
    return path.extension() == ".dll" ? path.stem().string() : std::string();
}

std::int64_t privateKilobytes(pid_t process)
{
    std::ifstream status(folderOf(process) / "status");
    std::int64_t size = 0;
    for (std::string word; status >> word;) {
        if (word == "RssAnon:") status >> size;
    }
    return size;
}

std::ptrdiff_t openFiles(pid_t process)
{
    std::error_code error;
    const std::filesystem::directory_iterator files(folderOf(process) / "fd", error);
    return std::distance(begin(files), end(files));
}

Family::Family(const std::filesystem::path& output)
{
    if (::prctl(PR_SET_CHILD_SUBREAPER, 1) != 0 || (_hub = ::fork()) < 0)
        throw std::system_error(errno, std::generic_category(), "start the hub");
    if (_hub > 0) return;
    ::setpgid(0, 0); // Ctrl-C is for the one who judges.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const rlimit none {};
    ::setrlimit(RLIMIT_CORE, &none);
    const int file = ::open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    ::dup2(file, STDOUT_FILENO);
    ::dup2(file, STDERR_FILENO);
    runHub();
    ::_exit(127);
}

Family::~Family()
{
    if (!_hasHubEnded) ::kill(_hub, SIGKILL); // Not reaped yet: the number is its own. So are those of its orphans.
    while (reap()) {
        for (const pid_t child : childrenOf(::getpid())) ::kill(child, SIGKILL);
        ::usleep(10'000);
    }
}

void Family::send(pid_t process, const std::string& name, int signal) const
{
    const auto file = static_cast<int>(::syscall(SYS_pidfd_open, process, 0));
    if (file < 0) return;
    if (process == _hub || moduleOf(process) == name) ::syscall(SYS_pidfd_send_signal, file, signal, nullptr, 0);
    ::close(file);
}

bool Family::reap()
{
    for (pid_t ended = 0; (ended = ::waitpid(-1, nullptr, WNOHANG)) != 0;) {
        if (ended < 0) return false;
        _hasHubEnded = _hasHubEnded || ended == _hub;
    }
    return true;
}

} // namespace chaos
