#pragma once
// What the code of docs/tour/02-calls.md finds.
#include "core/application/application.h"
#include "core/ipc/interface/remote.h"
#include "examples/ladder/9_thumbnails/cache.h"
#include "examples/ladder/9_thumbnails/watcher.h"
#include <cstdio>

extern ipc::Application& app;
extern ipc::Ref<Watcher> watcher;
extern ipc::Ref<Cache> cache;
extern ipc::Ref<Decoder> decoder;
extern fn::String path;
extern fn::String folder;
