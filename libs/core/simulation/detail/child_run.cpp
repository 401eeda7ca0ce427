#include "core/simulation/detail/child_run.h"
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <span>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace core::simulation {
namespace {

constexpr rlim_t mostSeconds = 40; // Processor time of a child; one that takes longer hangs.
constexpr unsigned mostWallSeconds = 600; // For a child that hangs without a processor, as in a lock taken twice.
constexpr std::size_t journalEntries = 8 * 1024 * 1024;

/// Memory that this process and its children see.
template <typename T> class SharedMemory {
public:
    explicit SharedMemory(std::size_t count)
        : _bytes(count * sizeof(T)),
          _memory(::mmap(nullptr, _bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0))
    {
        if (_memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "share memory");
    }
    SharedMemory(const SharedMemory&) = delete;
    ~SharedMemory() { ::munmap(_memory, _bytes); }
    std::span<T> span() const { return { static_cast<T*>(_memory), _bytes / sizeof(T) }; }

private:
    std::size_t _bytes;
    void* _memory;
};

} // namespace

std::optional<Failure> inChild(folly::Function<std::string(Shared&)> body, folly::Function<void(const Shared&)> account)
{
    const SharedMemory<Shared> memory(1);
    auto& shared = memory.span().front();
    std::fflush(stdout); // Otherwise the child would print the buffered text again.
    const pid_t child = ::fork();
    if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (child == 0) {
        const rlimit bound { mostSeconds, mostSeconds + 1 };
        ::setrlimit(RLIMIT_CPU, &bound);
        ::alarm(mostWallSeconds);
        ::prctl(PR_SET_PDEATHSIG, SIGKILL); // A search that is ended leaves no child behind.
        const auto what = body(shared);
        std::strncpy(shared.what, what.c_str(), sizeof(shared.what) - 1);
        std::fflush(stdout);
        ::_exit(what.empty() ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    if (account) account(shared);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return std::nullopt;
    Failure failure { shared.seed, shared.what };
    if (failure.what.empty())
        failure.what = WIFSIGNALED(status) ? fmt::format("the program was ended by signal {}", WTERMSIG(status))
                                           : fmt::format("the program ended with status {}", WEXITSTATUS(status));
    return failure;
}

std::optional<Failure> runStory(const Run& run, const Decisions::Story& story, bool tells)
{
    return inChild([&](Shared&) {
        if (!tells && !::freopen("/dev/null", "w", stderr)) return std::string("no /dev/null");
        Decisions decisions(story);
        const auto report = run(decisions, tells);
        return report.violations.empty() ? std::string() : report.violations.front();
    });
}

Decisions::Story storyOf(const Run& run, std::uint64_t seed)
{
    const SharedMemory<std::uint64_t> journal(journalEntries);
    inChild([&](Shared&) {
        Decisions decisions(seed);
        decisions.keepIn(journal.span());
        const auto report = run(decisions, false);
        return report.violations.empty() ? std::string() : report.violations.front();
    });
    return Decisions::fromJournal(journal.span());
}

} // namespace core::simulation
