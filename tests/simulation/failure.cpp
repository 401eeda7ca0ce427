#include "failure.h"
#include "run.h"
#include <chrono>
#include <cstring>
#include <fmt/format.h>
#include <new>
#include <span>
#include <sys/mman.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace simulated {
namespace {

using core::simulation::Decisions;
using Clock = std::chrono::steady_clock;

constexpr auto shrinkingTime = std::chrono::seconds(30);
constexpr unsigned mostSeconds = 120; // Of one child: longer is a hang.
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

/// The same failure has the same text but for its numbers.
std::string kindOf(std::string what)
{
    std::erase_if(what, [](char c) { return c >= '0' && c <= '9'; });
    return what;
}

class Shrinker {
public:
    Shrinker(Story story, const Failure& failure) : _story(std::move(story)), _kind(kindOf(failure.what)) { }

    Story shrink()
    {
        for (bool improves = true; improves && !isLate();) {
            improves = false;
            for (auto& decisions : _story) improves = cut(decisions) || improves;
            for (auto& decisions : _story) improves = tame(decisions) || improves;
        }
        return _story;
    }

private:
    bool isLate() const { return Clock::now() > _end; }

    bool stillFails() const
    {
        const auto failure = runStory(_story, false);
        return failure && kindOf(failure->what) == _kind;
    }

    /// Keeps a change if the story fails with it.
    bool tryTo(std::vector<std::uint32_t>& decisions, std::vector<std::uint32_t> changed)
    {
        if (changed == decisions || isLate()) return false;
        decisions.swap(changed);
        if (stillFails()) return true;
        decisions.swap(changed);
        return false;
    }

    bool cut(std::vector<std::uint32_t>& decisions)
    {
        bool improves = false;
        for (auto part = decisions.size() / 2; part > 0 && !isLate(); part /= 2) {
            while (decisions.size() >= part
                && tryTo(decisions, { decisions.begin(), decisions.end() - static_cast<std::ptrdiff_t>(part) })) {
                improves = true;
            }
        }
        return improves;
    }

    bool tame(std::vector<std::uint32_t>& decisions)
    {
        bool improves = false;
        for (auto part = std::max<std::size_t>(decisions.size() / 2, 1);; part /= 2) {
            for (std::size_t from = 0; from < decisions.size() && !isLate(); from += part) {
                auto changed = decisions;
                std::fill_n(
                    changed.begin() + static_cast<std::ptrdiff_t>(from), std::min(part, changed.size() - from), 0);
                improves = tryTo(decisions, std::move(changed)) || improves;
            }
            if (part == 1 || isLate()) return improves;
        }
    }

    Story _story;
    const std::string _kind;
    const Clock::time_point _end = Clock::now() + shrinkingTime;
};

} // namespace

std::optional<Failure> inChild(folly::Function<std::string(Shared&)> body, folly::Function<void(const Shared&)> account)
{
    const SharedMemory<Shared> memory(1);
    auto& shared = memory.span().front();
    std::fflush(stdout); // Else the child prints it again.
    const pid_t child = ::fork();
    if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (child == 0) {
        ::alarm(mostSeconds);
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

std::optional<Failure> runStory(const Story& story, bool tells)
{
    return inChild([&](Shared&) {
        if (!tells && !::freopen("/dev/null", "w", stderr)) return std::string("no /dev/null");
        Decisions decisions(story);
        const auto report = runOnce(decisions, tells);
        return report.violations.empty() ? std::string() : report.violations.front();
    });
}

Story storyOf(std::uint64_t seed)
{
    const SharedMemory<std::uint64_t> journal(journalEntries);
    inChild([&](Shared&) {
        Decisions decisions(seed);
        decisions.keepIn(journal.span());
        const auto report = runOnce(decisions, false);
        return report.violations.empty() ? std::string() : report.violations.front();
    });
    return Decisions::fromJournal(journal.span());
}

Story shrink(Story story, const Failure& failure) { return Shrinker(std::move(story), failure).shrink(); }

} // namespace simulated
