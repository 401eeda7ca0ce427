// A module whose entry point never connects: it waits until it is killed.
#include "foundation/export.h"
#include <cstdint>
#include <unistd.h>

extern "C" FN_EXPORT void moduleEntryPoint(const char*, const char*, std::intptr_t, std::intptr_t)
{
    for (;;) pause();
}
