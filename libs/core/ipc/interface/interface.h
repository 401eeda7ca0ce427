#pragma once
#include "base/debug.h"
#include "core/ipc/object/payload_reader.h"
#include "core/ipc/object/payload_writer.h"
#include "foundation/duration.h"
#include "foundation/fields.h"
#include "foundation/run_loop.h"
#include <cstddef>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace ipc {

class PendingCall;

namespace internal {

/// Where the members of an interface belong: a reference, which calls, or a service, which fires events. (Services may have
/// functions of any name, which must not hide these.)
class FN_EXPORT Peer {
public:
    /// Starts a call: `argument` writes its argument. `limit` as in `CallableObjectReference::startCall()`.
    virtual void peerCall(const fn::AutoPtr<PendingCall>& call, PayloadSource argument, fn::Duration limit);
    virtual void peerListen() const; ///< Somebody wants to hear an event, or watch a property.
    virtual void peerFire(std::string_view event, PayloadSource argument);
    virtual fn::RunLoop& peerLoop() const = 0;

protected:
    ~Peer() = default;
};

/// A member of an interface: knows its name, and where it belongs once it has been bound.
class FN_EXPORT Member {
public:
    Member() = default;
    Member(const Member&) = delete;
    Member& operator=(const Member&) = delete;

    const char* name() const { return _name; }

protected:
    ~Member() = default;

    // What the peer does. `fn::RuntimeException` if the interface was made by hand.
    void start(const fn::AutoPtr<PendingCall>& call, PayloadSource argument, fn::Duration limit) const
    {
        peer().peerCall(call, argument, limit);
    }
    void listen() const { peer().peerListen(); }
    void fire(PayloadSource argument) const { peer().peerFire(_name, argument); }
    fn::RunLoop& loop() const { return peer().peerLoop(); }

private:
    template <typename I> friend void bindMembers(I& interface, Peer& peer);

    Peer& peer() const
    {
        if (!_peer) throwUnbound();
        return *_peer;
    }
    [[noreturn]] void throwUnbound() const;

    Peer* _peer = nullptr;
    const char* _name = "";
};

/// The members that IPC_MEMBERS has named.
template <typename... Members> struct MemberList {
    template <typename I>
    static constexpr std::size_t bytesIn = (std::size_t() + ... + sizeof(Members::in(std::declval<I&>())));

    template <typename Visitor> static void each(Visitor&& visitor) { (visitor(Members()), ...); }
};

/// Gives the first of its parameters away: the list that the macro makes begins with nothing.
template <typename Nothing, typename... Members> struct MemberListFrom {
    using Type = MemberList<Members...>;
};

} // namespace internal

/// The base of interfaces: what two processes agree on. A structure whose members are `ipc::Method`, `ipc::Event` and
/// `ipc::Property`, and that names them in IPC_MEMBERS. Who calls includes it, and who serves (`ipc::Service`).
///
/// Objects are shared under the name of the structure with its namespaces, or under what `static constexpr const char* className`
/// says. `static constexpr fn::Duration timeLimit`, if there is one, bounds each call that has no bound of its own.
template <typename I> struct Interface {
    Interface() = default;
    Interface(const Interface&) = delete;
    Interface& operator=(const Interface&) = delete;

    /// The class name under which its objects are shared.
    static const fn::String& sharedName()
    {
        static const fn::String name = [] {
            if constexpr (requires { I::className; })
                return fn::String(I::className);
            else
                return fn::debug::demangleTypeName(typeid(I).name());
        }();
        return name;
    }
};

namespace internal {

/// Tells the members their names, and where they belong.
template <typename I> void bindMembers(I& interface, Peer& peer)
{
    // Between members of a greater alignment there may be bytes of nobody.
    constexpr auto bytes = I::Members::template bytesIn<I>;
    static_assert(alignof(I) > alignof(void*) || sizeof(I) == bytes || (std::is_empty_v<I> && bytes == 0),
        "IPC_MEMBERS does not name each member of the interface, once");
    I::Members::each([&]<typename M>(M) {
        Member& member = M::in(interface);
        member._peer = &peer;
        member._name = M::name;
    });
}

} // namespace internal
} // namespace ipc

/// What is known of one member: its name, the member itself, and the service's function of that name.
#define IPC_MEMBER(member) \
    struct member##Member { \
        static constexpr const char* name = #member; \
        template <typename I> static auto& in(I& interface) { return interface.member; } \
        template <typename S, typename... Args> \
        static auto call(S& service, Args&&... args) -> decltype(service.member(static_cast<Args&&>(args)...)) \
        { \
            return service.member(static_cast<Args&&>(args)...); \
        } \
    };
#define IPC_MEMBER_TYPE(member) , member##Member

/// Names all members of an interface, once, behind them: IPC_MEMBERS(greet, greeted, count)
#define IPC_MEMBERS(...) \
    FN_FOR_EACH(IPC_MEMBER, __VA_ARGS__) \
    using Members = ::ipc::internal::MemberListFrom<void FN_FOR_EACH(IPC_MEMBER_TYPE, __VA_ARGS__)>::Type;
