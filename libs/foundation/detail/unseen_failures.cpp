#include "foundation/detail/unseen_failures.h"
#include "base/exceptions.h"
#include "foundation/logging/logging.h"
#include "foundation/system/process_local.h"
#include "foundation/time/clock.h"
#include "foundation/unhandled_exception.h"
#include "foundation/uv/detail/loop_private.h"

namespace fn::internal {
namespace {

constexpr auto interval = Duration::seconds(1); // Between two lines about one place.
constexpr std::size_t mostPlaces = 1000; // In one interval; all further places count as one.

/// The places, by the name of the call that failed, about which a line was logged lately.
class Places {
public:
    /// How many failures were left out since the last line about the place; -1 if this failure is left out, too.
    int admit(const String& name)
    {
        const std::lock_guard guard(_lock);
        const auto* loop = RunLoop::currentLoop();
        const auto now = (loop ? loop->clock() : Clock::system()).monotonic();
        const bool isNew = !_places.contains(name);
        if (isNew && _places.size() >= mostPlaces)
            std::erase_if(_places, [&](const auto& known) { return known.second.next <= now; });
        auto& place = _places[isNew && _places.size() >= mostPlaces ? String() : name];
        if (place.lines && now < place.next) {
            ++place.leftOut;
            return -1;
        }
        place.lines = true;
        place.next = now + interval;
        return std::exchange(place.leftOut, 0);
    }

private:
    struct Place {
        Duration next;
        int leftOut = 0;
        bool lines = false; // Whether a line has been logged.
    };
    std::mutex _lock;
    std::map<String, Place> _places;
};

String describe(const std::source_location& place)
{
    const std::string_view file = place.file_name(); // As the compiler was told it: folders of the machine that built.
    const std::string_view function = place.function_name();
    const auto line = fmt::format("{}:{}", file.substr(file.rfind('/') + 1), place.line());
    // GCC calls what lies in a coroutine by the name of what it makes of it.
    return function.find(".Frame") != function.npos ? line : fmt::format("{} at {}", function, line);
}

void report(const String& place, const std::string& text)
{
    static ProcessLocal<Places> places;
    const auto& category = logging::category<"core.promise">();
    const int leftOut = places.get().admit(place);
    if (leftOut < 0) return;
    logging::writeChecked(category, logging::Warning, {}, { "libs/foundation/promise", 0, "" },
        "A promise failed and nobody looked: {}{}{}{}", place, place.empty() ? "" : ": ", text,
        leftOut == 0 ? std::string() : fmt::format(" (and {} more before)", leftOut));
}

} // namespace

void reportUnseenFailure(const std::exception_ptr& failure, const std::source_location* place) noexcept
try {
    if (endingLoops() > 0) return;
    try {
        if (!failure) throw std::logic_error("rejected with an empty exception pointer");
        std::rethrow_exception(failure);
    } catch (const EndedException&) {
    } catch (const Exception& exception) {
        const auto* call = exception.find<CallInfo>();
        const auto maker = place ? describe(*place) : String();
        report(!call ? maker : place ? *call + " in " + maker : *call, exceptionText(exception));
    } catch (const std::exception& exception) {
        report(place ? describe(*place) : String(), exceptionText(exception));
    } catch (...) {
        report(place ? describe(*place) : String(), "exception of an unknown type");
    }
} catch (...) { // An exception describes itself by code of its own, which may throw.
    unhandledException();
}

} // namespace fn::internal
