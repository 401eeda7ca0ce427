#include "foundation/handle.h"
#include <utility>

namespace fn {

HandleTarget::~HandleTarget() = default;

Handle::Handle(HandleTarget& target) : _target(&target) { target.attachHandle(*this); }

Handle::Handle(Handle&& other) noexcept : _target(std::exchange(other._target, nullptr))
{
    if (_target) _target->attachHandle(*this);
}

Handle& Handle::operator=(Handle&& other) noexcept
{
    if (this == &other) return *this;
    // The old target ends last, with `previous`: the code that its end runs finds this handle complete.
    Handle previous(std::move(*this));
    _target = std::exchange(other._target, nullptr);
    if (_target) _target->attachHandle(*this);
    return *this;
}

Handle::~Handle() { invalidate(); }

void Handle::invalidate()
{
    if (auto* target = std::exchange(_target, nullptr)) target->invalidateTarget();
}

void Handle::detach()
{
    if (auto* target = std::exchange(_target, nullptr)) target->detachHandle();
}

} // namespace fn
