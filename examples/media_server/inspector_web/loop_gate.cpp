#include "inspector_web/loop_gate.h"
#include "inspector_web/error_page.h"

namespace media {
LoopGate::LoopGate(fn::RunLoop& loop, Answering answering) : _loop(loop), _answering(std::move(answering)) { }

WebAnswer LoopGate::ask(const WebRequest& request)
{
    const auto slot = std::make_shared<std::optional<WebAnswer>>();
    _loop.post([self = shared_from_this(), request, slot] { self->pass(request, slot); });
    std::unique_lock lock(_lock);
    _changed.wait_for(lock, mostWaiting, [&] { return *slot || _isClosed; });
    if (*slot) return std::move(**slot);
    return _isClosed ? errorPage(503, "The program is ending.") : errorPage(504, "The program is busy.");
}

void LoopGate::pass(const WebRequest& request, const Slot& slot)
{
    if (!_answering) return; // Closed meanwhile: nobody waits.
    _answering(request).then(
        [self = shared_from_this(), slot](WebAnswer&& answer) { self->fill(slot, std::move(answer)); });
}

void LoopGate::fill(const Slot& slot, WebAnswer&& answer)
{
    const std::lock_guard lock(_lock);
    *slot = std::move(answer);
    _changed.notify_all(); // All wait here, each for its own.
}

void LoopGate::close()
{
    _answering = {};
    const std::lock_guard lock(_lock);
    _isClosed = true;
    _changed.notify_all();
}

} // namespace media
