#pragma once
// What the code of docs/interfaces.md finds.
#include "core/application/application.h"
#include "core/ipc/interface/event.h"
#include "core/ipc/interface/method.h"
#include "core/ipc/interface/property.h"
#include "core/ipc/interface/service.h"
#include "core/ipc/service_module.h"

using namespace std::chrono_literals;

struct Picture {
    int width = 0;
    fn::ByteArray pixels;
};
FN_FIELDS(Picture, width, pixels)
