#pragma once
// What the code of docs/logging.md finds.
#include "core/services/app_info.h"
#include "core/services/logging_profile/logging_profiles.h"
#include "foundation/logging/logging.h"

extern int count;
