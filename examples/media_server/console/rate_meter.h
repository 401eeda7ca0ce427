#pragma once
#include "foundation/duration.h"
#include <cstdint>
#include <deque>

namespace media {

/// The speed of something that is counted, over the last seconds.
class RateMeter {
public:
    void add(fn::Duration now, std::int64_t count); ///< `count` so far; a lower count than before starts anew.
    double perSecond() const; ///< 0 while there are too few counts.

private:
    struct Sample {
        fn::Duration time;
        std::int64_t count;
    };
    std::deque<Sample> _samples; // Of the last seconds only.
};

} // namespace media
