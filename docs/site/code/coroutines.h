#pragma once
// What the code of docs/coroutines.md finds.
#include "core/ipc/module.h"
#include "foundation/coroutine/channel.h"
#include "foundation/coroutine/next.h"
#include "foundation/coroutine/on_pool.h"
#include "foundation/coroutine/scope.h"
#include "foundation/coroutine/semaphore.h"
#include "foundation/coroutine/sleep.h"
#include "foundation/message_bus.h"
#include "foundation/work_context.h"

struct Image { };
struct Thumbnail { };
Image loadImage(const fn::String& path);
fn::Promise<Thumbnail> scale(Image image);
fn::Promise<void> show(fn::Value body);

class ThumbnailMaker {
public:
    ThumbnailMaker(const ThumbnailMaker&) = delete;
    fn::Promise<Thumbnail> make(fn::String path);

private:
    fn::Semaphore _atMostFour { 4 };
};

extern ThumbnailMaker maker;
extern fn::Scope scope;
extern fn::String path;
extern fn::MessageBus& bus;
extern fn::Channel<fn::Value> bodies;
extern Image image;
extern std::uint64_t id;
