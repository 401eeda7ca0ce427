#pragma once
// What the code of docs/application.md finds.
#include "core/application/application.h"
#include "examples/ladder/9_thumbnails/decoder.h"
