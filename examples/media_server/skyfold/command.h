#pragma once
#include "api/application.h"
#include <optional>

namespace media {

/// The command that one start of the program hands to the program that runs already.
struct Command {
    std::optional<RunOptions> scan; ///< A folder to catalogue. Only its two folders are sent.
    bool flipVerbose = false;

    fn::Value toValue() const;

    /// Any process of the user may have sent `value`: `fn::Exception` if it is no command, or names no folder.
    static Command fromValue(const fn::Value& value);
};

} // namespace media
