#pragma once
#include "base/exceptions.h"
#include "platform/com/result_codes.h"
#include "platform/com/unknown.h"
#include <atomic>
#include <new>
#include <type_traits>
#include <utility>

namespace platform::detail {

/// The number of objects and texts that exist. Thread-safe.
std::atomic<std::int64_t>& objectCount() noexcept;

/// The result for an exception about a file.
HRESULT resultOf(const fn::Exception& exception) noexcept;

/// Whether a test wants this call to fail (`ScopedComFailure`), which may also throw.
bool isToFail();

/// The result of `call`. An exception of `call` becomes a result, since no exception may leave an object.
template <typename Call> HRESULT guarded(Call&& call) noexcept
{
    try {
        if (isToFail()) return E_FAIL;
        return std::forward<Call>(call)();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (const fn::Exception& exception) {
        return resultOf(exception);
    } catch (...) {
        return E_UNEXPECTED;
    }
}

/// References, deletion and the interfaces of an object that has `Interface` and its bases. A new object has one reference, which
/// its maker owns. Thread-safe.
template <typename Interface, const IID& interfaceId> class ComObject : public Interface {
public:
    ComObject() { ++objectCount(); }
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    HRESULT QueryInterface(REFIID iid, void** object) final
    {
        if (!object) return E_POINTER;
        const bool isDispatch = std::is_base_of_v<IDispatch, Interface> && iid == IID_IDispatch;
        const bool isKnown = iid == IID_IUnknown || iid == interfaceId || isDispatch;
        // The bases are the beginning of the object: one pointer serves for all of them.
        *object = isKnown ? static_cast<Interface*>(this) : nullptr;
        if (!isKnown) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    ULONG AddRef() final { return ++_references; }
    ULONG Release() final
    {
        const ULONG left = --_references;
        if (left == 0) delete this;
        return left;
    }

protected:
    virtual ~ComObject() { --objectCount(); }

private:
    std::atomic<ULONG> _references { 1 };
};

/// Makes a T and hands it out as `iid`.
template <typename T, typename... Arguments> HRESULT makeObject(REFIID iid, void** object, Arguments&&... arguments)
{
    auto* const made = new T(std::forward<Arguments>(arguments)...);
    const HRESULT result = made->QueryInterface(iid, object);
    made->Release();
    return result;
}

/// Makes a T and hands it out as one of its bases.
template <typename T, typename Interface, typename... Arguments>
HRESULT handOut(Interface** object, Arguments&&... arguments)
{
    if (!object) return E_POINTER;
    *object = nullptr;
    return guarded([&] {
        *object = new T(std::forward<Arguments>(arguments)...);
        return S_OK;
    });
}

} // namespace platform::detail
