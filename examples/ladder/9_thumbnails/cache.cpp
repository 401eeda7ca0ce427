// The module 9_cache: a file of SQLite in each folder. What lies there outlives the processes.
#include "cache.h"
#include "core/ipc/interface/remote.h"
#include "core/ipc/interface/service.h"
#include "core/ipc/service_module.h"
#include "foundation/coroutine/semaphore.h"
#include "foundation/io/path.h"
#include "shelf.h"

class CacheService final : public ipc::Service<CacheService, Cache> {
public:
    using Service::Service;
    fn::Promise<Thumbnail> thumbnail(fn::String path)
    {
        Shelf shelf(fn::Path::parsePath(path).directory);
        if (const auto known = shelf.find(path)) co_return *known;
        const auto permit = co_await _four.acquire(); // The decoder gets four pictures at a time.
        const auto made = co_await _decoder->shrink(path, 16);
        shelf.keep(path, made);
        shared.made = *shared.made + 1;
        co_return made;
    }

private:
    ipc::Remote<Decoder> _decoder { worker() }; // Whichever process has it.
    fn::Semaphore _four { 4 };
};

IPC_MODULE_ENTRY_POINT(ipc::ServiceModule<CacheService>, "Thumbnail cache")
