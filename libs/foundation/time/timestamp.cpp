#include "foundation/time/timestamp.h"
#include "foundation/time/clock.h"
#include <fmt/format.h>

namespace fn::internal {

Duration wallClock() { return Clock::system().sinceEpoch(); }

String timestampText(Duration sinceEpoch)
{
    using namespace std::chrono;
    const auto total = microseconds(sinceEpoch.totalMicroseconds());
    const auto day = floor<days>(total);
    // std::chrono::year holds 16 bits; 32,000 years are enough for people.
    constexpr auto reach = days(32'000LL * 365);
    if (day < -reach || day > reach) return fmt::format("{} us", total.count());
    const year_month_day date { sys_days(duration_cast<days>(day)) };
    const hh_mm_ss time(total - day);
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}.{:06}", static_cast<int>(date.year()),
        static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), time.hours().count(),
        time.minutes().count(), time.seconds().count(), time.subseconds().count());
}

} // namespace fn::internal
