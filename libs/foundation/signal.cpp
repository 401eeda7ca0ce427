#include "foundation/signal.h"
#include "foundation/assertion.h"

namespace fn::internal {

SignalRecord::~SignalRecord() = default;
SignalState::~SignalState() = default;

void SignalRecord::attachHandle(Handle& handle) { _handle = &handle; }

void SignalRecord::detachHandle() { _handle = nullptr; }

void SignalRecord::invalidateTarget()
{
    _handle = nullptr;
    _state->disconnect(*this);
}

void SignalRecord::detachFromHandle()
{
    if (_handle) _handle->detach();
}

void SignalState::append(SignalRecord& record) noexcept
{
    record._state = this;
    record._serial = _nextSerial++;
    record._previous = _last;
    (_last ? _last->_next : _first) = &record;
    _last = &record;
}

void SignalState::disconnect(SignalRecord& record)
{
    (record._previous ? record._previous->_next : _first) = record._next;
    (record._next ? record._next->_previous : _last) = record._previous;
    record._state = nullptr;
    for (auto* cursor = _innermost; cursor; cursor = cursor->_outer) {
        if (cursor->_next == &record) cursor->_next = record._next;
    }
    if (!_first && !_hasFiredOnce && _signal) {
        _signal->_state = nullptr;
        destroy();
    }
    // From here on this state may have been freed. The handle is detached first: the callable may own the handle.
    record.detachFromHandle();
    if (record._running == 0) delete &record;
}

void SignalState::disconnectAll()
{
    const SignalCursor guard(this); // The destructor of a callable may destroy the signal.
    while (guard.state() && _first) disconnect(*_first);
}

void SignalState::destroy()
{
    _signal = nullptr;
    while (_first) disconnect(*_first);
    for (auto* cursor = _innermost; cursor; cursor = cursor->_outer) cursor->_state = nullptr;
    delete this;
}

SignalCursor::SignalCursor(SignalState* state) noexcept
    : _state(state),
      _outer(state->_innermost),
      _next(state->_first),
      _endSerial(state->_nextSerial)
{
    state->_innermost = this;
}

SignalCursor::~SignalCursor()
{
    finishCurrent();
    if (_state) _state->_innermost = _outer;
}

SignalRecord* SignalCursor::next()
{
    finishCurrent();
    if (!_next || _next->_serial >= _endSerial) return nullptr;
    _current = _next;
    _next = _current->_next;
    ++_current->_running;
    return _current;
}

void SignalCursor::finishCurrent()
{
    auto* record = std::exchange(_current, nullptr);
    if (record && --record->_running == 0 && !record->_state) delete record;
}

SignalBase::SignalBase(SignalBase&& other) noexcept { adoptState(std::exchange(other._state, nullptr)); }

SignalBase& SignalBase::operator=(SignalBase&& other) noexcept
{
    // Both lists have an owner all the time, since the destructor of a callable may use both signals. The old list is freed
    // last, with `previous`.
    SignalBase moved(std::move(other));
    const SignalBase previous(std::move(*this));
    adoptState(std::exchange(moved._state, nullptr));
    return *this;
}

SignalBase::~SignalBase()
{
    // Repeated, since the destructor of a callable may connect another one.
    while (auto* state = std::exchange(_state, nullptr)) state->destroy();
}

void SignalBase::adoptState(SignalState* state) noexcept
{
    _state = state;
    if (state) state->_signal = this;
}

void SignalBase::setFiredOnce() noexcept { _state->_hasFiredOnce = true; }

bool SignalBase::hasFiredOnce() const noexcept { return _state && _state->_hasFiredOnce; }

void SignalBase::checkFireOnce() const { (void)FN_ASSERT(!hasFiredOnce(), sites::eventFiresOnce); }

} // namespace fn::internal
