#include "processes.h"
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <string_view>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace chaos {
namespace {

std::filesystem::path folderOf(pid_t process) { return "/proc/" + std::to_string(process); }

} // namespace

Target::Target(pid_t id) : _id(id), _file(static_cast<int>(::syscall(SYS_pidfd_open, id, 0))) { }
Target::Target(Target&& other) noexcept : _id(other._id), _file(std::exchange(other._file, -1)) { }
Target& Target::operator=(Target&& other) noexcept
{
    std::swap(_id, other._id);
    std::swap(_file, other._file);
    return *this;
}
Target::~Target()
{
    if (_file >= 0) ::close(_file);
}

bool Target::send(int signal) const
{
    return _file >= 0 && ::syscall(SYS_pidfd_send_signal, _file, signal, nullptr, 0) == 0;
}

std::vector<pid_t> childrenOf(pid_t parent)
{
    std::vector<pid_t> children;
    std::error_code error;
    for (const auto& thread : std::filesystem::directory_iterator(folderOf(parent) / "task", error)) {
        std::ifstream list(thread.path() / "children");
        for (pid_t child = 0; list >> child;) children.push_back(child);
    }
    return children;
}

std::string moduleOf(pid_t process)
{
    std::ifstream file(folderOf(process) / "cmdline");
    std::string program;
    std::string library;
    std::getline(file, program, '\0');
    std::getline(file, library, '\0');
    const std::filesystem::path path(library);
    return path.extension() == ".dll" ? path.stem().string() : std::string();
}

std::size_t privateMemory(pid_t process)
{
    std::ifstream status(folderOf(process) / "status");
    for (std::string line; std::getline(status, line);) {
        // The journal, a shared file, is not in it.
        if (line.starts_with("RssAnon:")) return std::stoul(line.substr(line.find_first_of("0123456789"))) * 1024;
    }
    return 0;
}

std::size_t openFiles(pid_t process)
{
    std::error_code error;
    const auto files = std::filesystem::directory_iterator(folderOf(process) / "fd", error);
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

Family::Family()
{
    if (::prctl(PR_SET_CHILD_SUBREAPER, 1) != 0) throw std::system_error(errno, std::generic_category(), "adopt");
}

Family::~Family()
{
    if (_hub > 0 && _hubStatus < 0) ::kill(_hub, SIGKILL); // Not reaped yet: the id is its own.
    while (reap() > 0) {
        for (const pid_t child : childrenOf(::getpid())) ::kill(child, SIGKILL);
        ::usleep(10'000);
    }
}

pid_t Family::start(const std::vector<std::string>& command, const std::filesystem::path& output)
{
    std::vector<char*> arguments;
    for (const auto& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    _hub = ::fork();
    if (_hub < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (_hub > 0) return _hub;
    ::setpgid(0, 0); // Ctrl-C is for the one who judges.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const rlimit none {};
    ::setrlimit(RLIMIT_CORE, &none);
    const int file = ::open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    ::dup2(file, STDOUT_FILENO);
    ::dup2(file, STDERR_FILENO);
    ::close(file);
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
}

std::size_t Family::reap()
{
    int status = 0;
    pid_t ended = 0;
    while ((ended = ::waitpid(-1, &status, WNOHANG)) > 0) {
        if (ended == _hub) _hubStatus = status;
    }
    return ended < 0 ? 0 : childrenOf(::getpid()).size();
}

} // namespace chaos
