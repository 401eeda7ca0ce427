#pragma once
#include "api/application.h"
#include <optional>

namespace media {

/// What one start of the program hands to the one that runs already.
struct Command {
    std::optional<RunOptions> scan; ///< A folder to catalogue. Of its options the two folders travel.
    bool flipVerbose = false;

    fn::Value toValue() const;

    /// Any process of the user may write it: `fn::Exception` where it is none, or names what is no folder.
    static Command fromValue(const fn::Value& value);
};

} // namespace media
