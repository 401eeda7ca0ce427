// The module 9_watcher.
#include "watcher.h"
#include "base/file_descriptor.h"
#include "core/ipc/interface/service.h"
#include "core/ipc/service_module.h"
#include "foundation/io/file.h"
#include "foundation/uv/poll.h"
#include <array>
#include <map>
#include <sys/inotify.h>
#include <unistd.h>

class WatcherService final : public ipc::Service<WatcherService, Watcher> {
public:
    using Service::Service;
    void watch(const fn::String& folder)
    {
        const int watched = ::inotify_add_watch(_queue.get(), folder.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO);
        if (watched < 0) fn::File::handleErrno(folder); // The caller gets the fn::FileException.
        _folders[watched] = folder;
    }

private:
    void read()
    {
        alignas(inotify_event) std::array<char, 4096> bytes;
        const auto size = ::read(_queue.get(), bytes.data(), bytes.size());
        for (ssize_t offset = 0; offset < size;) {
            const auto& event = *reinterpret_cast<const inotify_event*>(bytes.data() + offset);
            offset += static_cast<ssize_t>(sizeof event + event.len);
            const auto name = event.len > 0 ? fn::String(event.name) : fn::String();
            if (name.endsWith(".pgm")) shared.appeared(_folders[event.wd] + "/" + name);
        }
    }

    const fn::FileDescriptor _queue { ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC) };
    std::map<int, fn::String> _folders; // By the numbers that the system gives them.
    fn::uv::Poll _poll { loop().uvLoop(), _queue.get(), [this] { read(); } };
};

IPC_MODULE_ENTRY_POINT(ipc::ServiceModule<WatcherService>, "Folder watcher")
