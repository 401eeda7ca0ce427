#pragma once
#include "core/ipc/interface/codec.h"
#include "core/ipc/interface/typed_reference.h"
#include <array>

namespace ipc {

template <typename I> class Reference;
template <typename S, typename I> class Service;

namespace internal {

[[noreturn]] FN_EXPORT void throwNoObject(const fn::String& className);

/// The events and properties of an interface, in the order of its members.
template <typename I> std::span<const EventEntry> eventsOf()
{
    static const auto entries = [] {
        std::vector<EventEntry> all;
        I::Members::each([&]<typename M>(M) {
            using Type = std::remove_reference_t<decltype(M::in(std::declval<I&>()))>;
            if constexpr (requires(Type & member) { member.isHeard(); }) {
                all.push_back({ M::name, [](void* interface) { return M::in(*static_cast<I*>(interface)).isHeard(); },
                    [](void* interface, PayloadReader& reader) {
                        M::in(*static_cast<I*>(interface)).receive(reader);
                    } });
            }
        });
        return all;
    }();
    return entries;
}

template <typename I> constexpr fn::Duration timeLimitOf()
{
    if constexpr (requires { I::timeLimit; })
        return I::timeLimit;
    else
        return {};
}

} // namespace internal

/// A reference to an object of interface I, in whichever worker that lives. Held by `ipc::Ref<I>`.
template <typename I> class Reference final : public internal::TypedReference {
public:
    /// Made by the worker that an object arrives at.
    explicit Reference(ObjectReferenceInitializer& initializer)
        : TypedReference(initializer, internal::eventsOf<I>(), &_interface, internal::timeLimitOf<I>())
    {
        internal::bindMembers(_interface, *this);
    }

    const I& interface() const { return _interface; } ///< The members, through which the object is called.
    fn::String className() const override { return I::sharedName(); }

private:
    ~Reference() override = default;

    I _interface;
};

/// An object of interface I as its users hold it: `greeter->greet("Ada")`. Belongs to its worker's loop. A default-made one
/// refers to nothing.
///
/// As an argument or a result it takes the object to another worker; a service is turned into one by passing it.
template <typename I> class Ref {
public:
    Ref() = default;
    /// Holds a reference that is there already; null refers to nothing.
    explicit Ref(fn::AutoPtr<Reference<I>> reference) : _reference(std::move(reference)) { }
    /// What stands for a service in its own worker.
    template <typename S>
    requires std::is_base_of_v<Service<S, I>, S> Ref(const fn::AutoPtr<S>& service)
        : _reference(service ? fn::dynamicCast<Reference<I>>(service->localReference()) : nullptr)
    {
    }

    /// The members of the interface. Nothing is referred to: `fn::NullPointerException` that names the class.
    const I* operator->() const
    {
        if (!_reference) [[unlikely]]
            internal::throwNoObject(I::sharedName());
        return &_reference->interface();
    }
    explicit operator bool() const { return static_cast<bool>(_reference); }
    friend bool operator==(const Ref& a, const Ref& b) = default;

    bool isDead() const { return _reference && _reference->dead(); } ///< Whether the object's worker has gone; final.
    /// Calls back when the object's worker has gone; at once, if it has.
    fn::Handle onDeath(folly::Function<void()> callback) const
    {
        operator->();
        return _reference->objectDeadSignal().connect(std::move(callback));
    }

    const fn::AutoPtr<Reference<I>>& reference() const { return _reference; } ///< For the untyped calls.

private:
    fn::AutoPtr<Reference<I>> _reference;
};

template <typename I> struct Codec<Ref<I>> {
    static void write(PayloadWriter& writer, const Ref<I>& value)
    {
        writer.writeObject(fn::AutoPtr<ObjectReference>(value.reference()));
    }
    static void read(PayloadReader& reader, Ref<I>& value)
    {
        const auto begin = reader.offset();
        const auto make = [](ObjectReferenceInitializer& initializer) {
            return fn::AutoPtr<ObjectReference>(new Reference<I>(initializer));
        };
        const auto object = reader.readObject(I::sharedName(), make);
        value = Ref<I>(fn::dynamicCast<Reference<I>>(object));
        if (!object || value) return;
        reader.setOffset(begin);
        reader.fail("an object of class " + I::sharedName() + " instead of " + object->className());
    }
    static fn::String type() { return "object " + I::sharedName(); }
};

/// An object of a reference class that is not made by an interface.
template <std::derived_from<ObjectReference> T> struct Codec<fn::AutoPtr<T>> {
    static void write(PayloadWriter& writer, const fn::AutoPtr<T>& value)
    {
        writer.writeObject(fn::AutoPtr<ObjectReference>(value));
    }
    static void read(PayloadReader& reader, fn::AutoPtr<T>& value)
    {
        const auto begin = reader.offset();
        const auto object = reader.readObject();
        value = fn::dynamicCast<T>(object);
        if (!object || value) return;
        reader.setOffset(begin);
        reader.fail("an object of another class than " + object->className());
    }
    static fn::String type() { return "object"; }
};

} // namespace ipc
