#pragma once
#include "foundation/duration.h"
#include <cstdint>
#include <deque>

namespace media {

/// The speed of something that is counted, over the last seconds.
class RateMeter {
public:
    void add(fn::Duration now, std::int64_t count); ///< `count` so far; less than before starts anew.
    double perSecond() const; ///< 0 while nothing can be said.

private:
    struct Sample {
        fn::Duration time;
        std::int64_t count;
    };
    std::deque<Sample> _samples; // The first one is about as old as the speed looks back.
};

} // namespace media
