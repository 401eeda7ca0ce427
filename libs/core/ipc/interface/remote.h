#pragma once
#include "core/ipc/interface/find.h"
#include "core/ipc/interface/remote_base.h"

namespace ipc {

/// An object of interface I that is found when it is needed, and found again after its process was started anew:
///
///     ipc::Remote<Greeter> greeter(worker);
///     co_await greeter->greet.within(2s)("Ada");
///
/// - A call waits while the object is away: as long as its time limit allows, `patience` where it has none; then it fails with
///   `fn::OperationTimedOutException`. One that was sent when the object went fails with `ipc::ObjectDeadException`, unless its method is
///   `ipc::Repeatable`: that one is sent to the next object.
/// - Events are heard, and properties watched, from whichever object is there. What an event told while the object was away is lost;
///   who watches a property is told its value when the object comes, if it is another one.
///
/// Lives no longer than its worker, on whose loop it is used. When it goes, calls that wait are rejected.
template <typename I> class Remote final : public internal::RemoteBase {
public:
    /// Looks for nothing yet. `patience` bounds the wait of a call that has no time limit of its own.
    explicit Remote(Worker& worker, fn::Duration patience = fn::Duration::seconds(30))
        : RemoteBase(worker, &_interface, I::sharedName(), internal::timeLimitOf<I>(), patience),
          _finder(worker)
    {
        internal::bindMembers(_interface, *this);
    }

    /// The members of the interface. The first use looks for the object.
    const I* operator->()
    {
        look();
        return &_interface;
    }

    /// The object that is there; one that refers to nothing if there is none.
    Ref<I> object() const { return isThere() ? Ref<I>(fn::dynamicCast<Reference<I>>(current())) : Ref<I>(); }

private:
    fn::Promise<fn::AutoPtr<internal::TypedReference>> find(fn::Duration timeout) override
    {
        return _finder.registry()->template getInstance<Reference<I>>(timeout).then(
            [](fn::AutoPtr<Reference<I>>&& found) { return fn::AutoPtr<internal::TypedReference>(std::move(found)); });
    }
    void refreshProperties() override
    {
        I::Members::each([&]<typename M>(M) {
            if constexpr (requires { M::in(_interface).refresh(); }) M::in(_interface).refresh();
        });
    }
    Worker& _finder;
    I _interface;
};

} // namespace ipc
