#pragma once
#include "base/string.h"
#include <optional>

namespace media {

/// Each application of the family has folders of its own. Before anything asks for one.
FN_EXPORT void chooseFolders();

/// Has the log of this process go where the logging profiles say, its files named after `name`. `priority` replaces the
/// threshold of the console's profile, in this process and in those it starts from now on.
FN_EXPORT void startLogging(const fn::String& name, std::optional<int> priority = {});

/// Whether verbose profiles take messages in this process.
FN_EXPORT bool isVerbose();

} // namespace media
