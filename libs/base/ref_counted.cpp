#include "base/ref_counted.h"
#include "base/auto_ptr.h"
#include "base/debug.h"
#include "base/exceptions.h"

namespace fn {
namespace {
constexpr std::uint32_t dying = 0x8000'0000;
}

RefCountedBase::~RefCountedBase() = default;

bool RefCountedBase::tryRetain() const noexcept
{
    auto count = _count.load(std::memory_order_relaxed);
    while (count != 0 && !(count & dying)) {
        if (_count.compare_exchange_weak(count, count + 1, std::memory_order_relaxed)) return true;
    }
    return false;
}

void RefCountedBase::deleteInstance() { delete this; }

void RefCountedBase::lastReferenceGone() const noexcept
{
    // References that are taken from here on (by destructors, for example) count above the mark: their release does not come here.
    _count.fetch_or(dying, std::memory_order_relaxed);
    const_cast<RefCountedBase*>(this)->deleteInstance();
}

namespace internal {

void throwNullPointer(const std::type_info& type)
{
    throw NullPointerException(
        "Attempted to dereference NULL pointer of class " + debug::demangleTypeName(type.name()));
}

} // namespace internal

WeakReferencableObject::~WeakReferencableObject() = default;
RefCountedObject::~RefCountedObject() = default;

} // namespace fn
