#pragma once
// What the code of docs/modules.md finds.
#include "core/ipc/module.h"
#include "core/ipc/run_module.h"
