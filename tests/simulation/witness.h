#pragma once
#include "base/export.h"
#include "core/ipc/wire/message.h"
#include "foundation/duration.h"
#include "foundation/logging/sink.h"
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ipc {
class ModuleManager;
}

namespace simulated {

inline constexpr const char* moduleName = "load_module_"; ///< And a number from 1.

/// What a call asks for.
enum class Ask { Echo, Later, Never, Throw, Error, Twice, Give, Keep, Relay, CallBack, Unencodable, Event };
inline constexpr std::uint32_t asks = 12;

/// What somebody has done, or what has happened to him. Behind each: what `number`, `other` and the rest say.
enum class Deed : std::uint8_t {
    None,
    Connects, ///< As this worker.
    Leaves, ///< Ends by itself; `flag`: since nobody needs it, it has been told to, or has lost its connection.
    IsToldToQuit,
    MakesThing, ///< This one, known to the library as `object`.
    EndsThing,
    HoldsThing, ///< At home, `other` times more.
    SendsThing,
    HasRegistered, ///< This thing: the registry has said so.
    Hides, ///< What it has registered, or shows it if not `flag`; this is request `number`.
    HasHidden, ///< As asked by request `number`, or shown if not `flag`.
    Broadcasts, ///< Event `value` of this thing.
    Registers, ///< This thing with priority `other`.
    MakesReference, ///< This one to `object`, which is at home if `flag`.
    Recognizes, ///< That this reference stands for thing `other`.
    KeepsReference, ///< Still at rest.
    HearsEvent, ///< Number `value` by this reference.
    HearsDeath, ///< Of what this reference stands for.
    EndsReference,
    Calls, ///< Call `number` by reference `other` with the Ask `value`.
    Passes, ///< In call `number` what reference `other` stands for.
    GetsCall, ///< This call, thing `other`; `flag`: with an object.
    LetsFail, ///< This call, as the one to which it led.
    GetsCancel, ///< Of this call.
    Cancels,
    HasResult, ///< Of call `number`: the number `value`, else -1; `flag`: an object or nothing.
    HasFailure, ///< Of call `number`, told in `text`; `flag`: since the object is dead.
    LooksUp, ///< Look-up `number`, for `value` ms.
    Finds, ///< By look-up `number` what reference `other` stands for.
    FindsNothing, ///< By look-up `number`, told in `text`.
    Proves, ///< That it is alive: has found and called somebody at rest.
    Posts, ///< On the bus message `value`, on channel `number`.
    Hears, ///< On the bus message `value` of publisher `other`, on channel `number`.
    KeepsBody, ///< The sticky one, message `value` of publisher `other`; 0: none.
    Logs, ///< `text` at priority `number`.
    Violates, ///< Saw something that must never happen.
    // Of the main process and of who does harm:
    GivesUp, ///< A module, says the supervisor.
    FindsSilent, ///< The module named by `text`.
    IsHarmed, ///< A process of name `text`, for `value` ms if it is a freeze; `number` is it, if known; `how` says more.
    // Of real processes alone:
    Starts, ///< As `text`, with the id `number` of the system.
    Exits, ///< The module `text`, with status `value` and signal `other`, says the supervisor.
    Counts, ///< The hub: `number` objects, `other` registrations, `value` waiters, `object` workers.
};

struct Event {
    Deed deed = Deed::None;
    int number = 0;
    int other = 0;
    std::int64_t value = 0;
    ipc::ObjectId object = 0;
    bool flag = false;
    std::string_view text = {};
    std::string_view how = {};
    int process = 0; ///< Who. Set by the witness; 0 is nobody of the application.
};

/// What is numbered in all processes together, from 1.
enum class Numbered { Things, References, Calls, Posts, LookUps, Hides };
inline constexpr std::size_t numberedKinds = 6;

inline constexpr int proofPriority = 7; ///< Of what is registered at rest: the highest.

/// To whom the load tells what it does before it does it, and what it hears; and who decides what it does. One that sees all processes (the
/// simulated world), or one in each: the journal, where there is no other one.
class FN_EXPORT Witness {
public:
    Witness(const Witness&) = delete;
    static Witness& current();

    virtual std::uint32_t choose(std::uint32_t count) = 0; ///< 0 to `count` - 1; 0 is the tame answer.
    virtual bool isResting() const = 0; ///< Nobody begins anything new.
    virtual std::uint32_t pause() { return 100 - choose(100); } ///< Milliseconds until one begins something again.
    virtual bool mayEndIdle() const { return false; } ///< Modules end by themselves when nobody needs them.
    /// How long from now on until everybody, at rest, shows that it is alive. Nothing: nobody has to.
    virtual std::optional<fn::Duration> timeUntilProof() const { return {}; }
    virtual int process() const = 0; ///< The number of the one that asks.
    virtual int next(Numbered what) = 0;
    virtual void tell(Event event) = 0;

protected:
    Witness() noexcept;
    virtual ~Witness();
    void hearLog(); ///< Each line at warning level and above, and some more, until it goes.

private:
    fn::AutoPtr<fn::logging::Sink> _logSink;
};

// Of the current one.
inline void tell(const Event& event) { Witness::current().tell(event); }
inline std::uint32_t choose(std::uint32_t count) { return Witness::current().choose(count); }
FN_EXPORT void listenTo(ipc::ModuleManager& manager); ///< Tells what it says of its modules.

} // namespace simulated
