#include "foundation/uv/process.h"
#include "base/exceptions.h"
#include "foundation/uv/detail/loop_private.h"
#include "foundation/uv/status.h"
#include <algorithm>
#include <fmt/format.h>
#include <unistd.h>

namespace fn::uv {
namespace {

constexpr int ignored = 0; // Kinds of streams.
constexpr int inherited = 2;
constexpr std::size_t standardStreams = 3;
constexpr unsigned passedFlags = UV_PROCESS_WINDOWS_HIDE;

// On other systems the identifiers -10, -11 and -12 name the standard streams.
int descriptorOf(int handle) { return handle <= -10 && handle >= -12 ? -10 - handle : handle; }

std::vector<uv_stdio_container_t> containersOf(const std::vector<ProcessStream>& streams)
{
    if (streams.size() > standardStreams) throw RangeException("A child has three standard streams");
    std::vector<uv_stdio_container_t> containers;
    for (const auto& stream : streams) {
        if (stream.kind != ignored && stream.kind != inherited) throw RangeException("Unsupported kind of stream");
        uv_stdio_container_t container;
        container.flags = stream.kind == inherited ? UV_INHERIT_FD : UV_IGNORE;
        container.data.fd = stream.kind == inherited ? descriptorOf(stream.handle) : -1;
        containers.push_back(container);
    }
    return containers;
}

// A lock, socket or inhibitor that a child inherits would outlive its owner. Descriptors that this library opens are close-on-exec
// already; those that other libraries open, or that this process has inherited, may not be.
void keepFromChildren() { ::close_range(standardStreams, ~0U, CLOSE_RANGE_CLOEXEC); }

} // namespace

struct Process::Private final : SharedMember, System::ChildUser {
    explicit Private(Loop::Private& loop) : SharedMember(loop, 1) { _process.data = this; }

    void spawn(ProcessOptions options);
    void kill(int signal);
    void forget(); ///< The user is gone.
    int pid() const noexcept { return _pid; }
    bool isRunning() const noexcept { return _open && _pid != 0; }
    unsigned flags() const noexcept { return _flags; }
    void loopIsEnding() override;

private:
    void exited(std::int64_t status, int signal) override;
    int start(const ProcessOptions& options, std::vector<uv_stdio_container_t> streams);
    int startSimulated(System& system, const ProcessOptions& options);
    void close();

    uv_process_t _process;
    int _pid = 0;
    unsigned _flags = 0;
    bool _spawned = false;
    bool _open = false; // libuv, or the simulated world, knows this object and holds it.
    folly::Function<void(std::int64_t, int)> _onExit;
};

void Process::Private::spawn(ProcessOptions options)
{
    const String action = fmt::format("start {}", options.file);
    if (std::exchange(_spawned, true)) Status(action, UV_EALREADY).throwOnError();
    if (!loop()) Status(action, UV_ECANCELED).throwOnError();
    for (const auto& argument : options.arguments) {
        if (argument.contains(std::string_view("\0", 1))) Status(action, UV_EINVAL).throwOnError();
    }
    auto streams = containersOf(options.streams);
    _flags = options.flags;
    _onExit = std::move(options.onExit);
    // The hold of libuv, until it has closed the handle, also if starting the child fails.
    static_cast<void>(hold(this).release());
    _open = true;
    auto* const system = loop()->system();
    const auto code = system ? startSimulated(*system, options) : start(options, std::move(streams));
    if (code >= 0) {
        ++loop()->children;
        return;
    }
    forget();
    close();
    Status(action, code).throwOnError();
}

int Process::Private::startSimulated(System& system, const ProcessOptions& options)
{
    const int id = system.spawn(options.file, options.arguments, *this);
    _pid = std::max(id, 0);
    return std::min(id, 0);
}

int Process::Private::start(const ProcessOptions& options, std::vector<uv_stdio_container_t> streams)
{
    std::vector<char*> arguments;
    arguments.reserve(options.arguments.size() + 1);
    for (const auto& argument : options.arguments) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);

    uv_process_options_t uvOptions {};
    uvOptions.file = options.file.c_str();
    uvOptions.args = arguments.data();
    uvOptions.flags = options.flags & passedFlags;
    uvOptions.stdio = streams.data();
    uvOptions.stdio_count = static_cast<int>(streams.size());
    uvOptions.exit_cb = [](uv_process_t* process, std::int64_t status, int signal) {
        static_cast<Private*>(process->data)->exited(status, signal);
    };
    keepFromChildren();
    const auto code = uv_spawn(loop()->handle(), &_process, &uvOptions);
    if (code == 0) _pid = uv_process_get_pid(&_process);
    return code;
}

void Process::Private::kill(int signal)
{
    if (!isRunning()) return;
    auto* const system = loop() ? loop()->system() : nullptr;
    const auto code = system ? system->kill(_pid, signal) : uv_process_kill(&_process, signal);
    if (code != UV_ESRCH) Status(fmt::format("send signal {} to process {}", signal, _pid), code).throwOnError();
}

void Process::Private::exited(std::int64_t status, int signal)
{
    auto callback = std::exchange(_onExit, {});
    if (--loop()->children == 0 && loop()->endsWithChildren) loop()->stop();
    close();
    if (callback) callGuarded(callback, status, signal);
}

void Process::Private::forget()
{
    const auto callback = std::exchange(_onExit, {}); // The member is empty first: the destructor may run any code.
}

void Process::Private::close()
{
    if (!std::exchange(_open, false)) return;
    if (auto* const system = loop()->system()) {
        system->forget(*this);
        return release();
    }
    const auto onClosed = [](uv_handle_t* handle) { static_cast<Private*>(handle->data)->release(); };
    uv_close(reinterpret_cast<uv_handle_t*>(&_process), onClosed);
}

void Process::Private::loopIsEnding()
{
    close();
    forget();
}

bool Process::awaitAll(Loop& loop, Duration most)
{
    auto& internals = loop.internals();
    bool isOver = false;
    const auto timer = loop.schedule(most, [&] {
        isOver = true;
        loop.stop();
    });
    internals.endsWithChildren = true;
    while (internals.children > 0 && !isOver) loop.run();
    internals.endsWithChildren = false;
    return internals.children == 0;
}

Process::Process(Loop& loop) : _private(new Private(loop.internals())) { }

Process::~Process()
{
    _private->forget();
    _private->release();
}

void Process::spawn(ProcessOptions options) { _private->spawn(std::move(options)); }
void Process::kill(int signal) { _private->kill(signal); }
int Process::pid() const noexcept { return _private->pid(); }
bool Process::isRunning() const noexcept { return _private->isRunning(); }
unsigned Process::flags() const noexcept { return _private->flags(); }

} // namespace fn::uv
