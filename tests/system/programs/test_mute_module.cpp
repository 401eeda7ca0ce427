// A module whose entry point never connects: it says so and waits until it is killed.
#include "foundation/export.h"
#include <cstdint>
#include <cstdio>
#include <unistd.h>

extern "C" FN_EXPORT void moduleEntryPoint(const char*, const char*, std::intptr_t, std::intptr_t)
{
    std::puts("mute");
    std::fflush(stdout);
    for (;;) pause();
}
