#pragma once
#include "core/ipc/dispatcher/dispatcher.h"
#include "core/simulation/world.h"
#include <fmt/format.h>
#include <map>
#include <set>
#include <string>

namespace simulated {

class ThingReference;
using core::simulation::Choice;
using core::simulation::Process;
using core::simulation::World;

/// What a call asks for.
enum class Ask { Echo, Later, Never, Throw, Error, Twice, Give, Keep, Relay, CallBack, Unencodable, Event };
inline constexpr std::uint32_t asks = 12;

/// What really happened in one run, and whether the library's account of it agrees. Told by the participants as they act; what
/// the code of a killed process does on its way out is not asked about.
class FN_EXPORT Truth {
public:
    Truth(World& world, bool tells);
    Truth(const Truth&) = delete;
    ~Truth();
    static Truth& current();

    World& world() { return _world; }
    std::uint32_t choose(std::uint32_t count) { return _world.decisions().choose(Choice::Load, count); }
    bool isResting = false; ///< Nobody begins anything new.
    bool isEnding = false; ///< All have been told to end.
    bool mayEndIdle = false; ///< Modules end by themselves when nobody needs them.
    static constexpr auto pongTime = fn::Duration::seconds(3); ///< For the answer to a PING.
    ipc::Dispatcher* hub = nullptr; ///< While the main process has one.

    void connected(ipc::WorkerId worker);
    void leaves();

    // Objects.
    int madeThing(ipc::ObjectId objectId);
    void thingEnded(int thing);
    void held(int thing, int change); ///< By its owner itself, so many times more.
    void registered(int thing, int priority);
    void sent(int thing); ///< By its owner.
    void madeReference(ThingReference& reference);
    void referenceEnded(ThingReference& reference);
    void referenceDied(ThingReference& reference);

    // Calls.
    int called(Ask ask, const ThingReference& reference);
    void arrived(int call);
    void cancelled(int call);
    void fulfilled(int call, const fn::Value& result);
    void rejected(int call, const std::exception_ptr& failure);

    // The bus, the supervisor, faults, the log.
    int posted(int channel);
    void heard(int channel, int publisher, int number, std::map<int, int>& last);
    void expects(const fn::String& module); ///< The application has it.
    void harmed(const fn::String& name, const char* harm, fn::Duration time);
    void gaveUp(const fn::String& message);
    void notResponding(const fn::String& module);
    void logged(int priority, const std::string& line);
    void violated(std::string what);

    void checkAtRest();
    std::size_t answers() const { return _answers; }
    const std::vector<std::string>& violations() const { return _violations; }

    template <typename... Args> void tell(fmt::format_string<Args...> text, Args&&... args)
    {
        if (_tells) print(fmt::format(text, std::forward<Args>(args)...));
    }

private:
    struct Thing {
        Process* owner;
        ipc::ObjectId objectId;
        bool isAlive = true;
        std::multiset<int> priorities; // Of its registrations.
        int holds = 0; // Of its owner's own.
        std::size_t sends = 0; // By its owner, registrations aside; at most.
    };
    struct Call {
        Ask ask;
        Process* caller;
        Process* owner;
        int thing;
        bool hasArrived = false;
        bool isCancelled = false;
        bool isOver = false;
    };

    void print(const std::string& line) const;
    bool isLateAnswer(const Call& call, const fn::Value& answer) const;
    bool isAlive(const Process* process) const;
    bool isHubDead() const;
    bool isExplained(const std::string& text) const;
    void checkCalls();
    void checkThings();
    void checkReferences();
    void checkCounts();
    void checkRegistry();
    void checkModules();
    void checkFreezes();
    void checkIdle();
    void checkStickyBodies();
    bool isReferred(const Thing& thing, bool elsewhere) const;

    struct Freeze {
        Process* process;
        fn::Duration begin;
        fn::Duration end;
    };

    World& _world;
    const bool _tells;
    std::vector<Thing> _things;
    std::vector<Call> _calls;
    std::vector<ThingReference*> _references; // In order of birth.
    std::map<fn::String, int> _harms; // By name of the process.
    std::vector<int> _posts; // By channel: how many.
    std::map<Process*, fn::Duration> _connected; // All that ever were, and since when.
    std::vector<fn::String> _modules;
    std::vector<Freeze> _freezes;
    std::map<fn::String, std::vector<fn::Duration>> _silences; // When which module was said not to respond.
    std::set<fn::String> _givenUp; // Messages.
    std::set<const Process*> _leaving;
    std::size_t _answers = 0;
    std::vector<std::string> _violations;
};

} // namespace simulated
