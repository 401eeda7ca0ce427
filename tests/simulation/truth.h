#pragma once
#include "base/string.h"
#include "foundation/duration.h"
#include "witness.h"
#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace simulated {

/// What really happened in one run, and whether the library's account of it agrees. It is told in order what the participants
/// did and heard, whether at once or from a journal; of the world around it knows what its derived class says.
class FN_EXPORT Truth {
public:
    Truth(const Truth&) = delete;
    virtual ~Truth();

    bool isEnding = false; ///< All have been told to end.
    bool isStopped = false; ///< Nobody is launched any more.
    bool modulesEndIdle = false; ///< By themselves, when nobody needs them.
    static constexpr auto pongTime = fn::Duration::seconds(3); ///< For the answer to a PING.

    void handle(const Event& event);
    void expects(const std::string& module) { _supervised[module].isExpected = true; } ///< The application has it.
    void checkAtRest();
    void checkQuit(); ///< All should have been told to, a while ago.
    void violated(std::string what);

    std::size_t answers() const { return _answers; }
    const std::vector<std::string>& violations() const { return _violations; }

protected:
    explicit Truth(bool tells) : _tells(tells) { }

    virtual fn::Duration now() const = 0;
    virtual bool isRunning(int process) const = 0;
    virtual std::string nameOf(int process) const = 0;
    virtual int mainProcess() const = 0;
    virtual bool isThere(const std::string& module) const = 0; ///< It runs; whether it is connected the truth knows.
    virtual bool isExplained(const std::string& text) const; ///< A line at warning level.
    virtual void checkWorld() { } ///< What else is to be checked at rest, while there is a hub.
    virtual void print(const std::string& line); ///< Of the story.

    template <typename... Args> void tell(fmt::format_string<Args...> text, Args&&... args)
    {
        if (_tells) print(fmt::format("{}: {}", speaker(), fmt::format(text, std::forward<Args>(args)...)));
    }

    bool isAlive(int process) const; ///< Neither killed nor about to end.
    bool isHubDead() const { return !isAlive(mainProcess()); }
    std::map<ipc::ObjectId, std::set<int>> holders() const; ///< Workers, the registry's among them; of living owners.
    std::size_t countedObjects() const; ///< How many the hub must count.
    std::size_t mistakenReferences() const; ///< For which it may count one more each.
    using Registered = std::tuple<ipc::ObjectId, int, bool>; ///< With its priority, hidden or not.
    std::multiset<Registered> registrations() const; ///< Of living owners.
    std::vector<int> openCalls() const; ///< That must end yet.
    bool keepOneBody() const; ///< All the same sticky one, the newest of who has posted it.
    void forget(int process); ///< It has gone: whatever it held and however long it was stopped.
    void excuseFreezes(); ///< Until now: nobody could notice them.
    struct Connected {
        fn::Duration since;
        int worker;
    };
    const std::map<int, Connected>& connected() const { return _connected; }
    bool wasFrozen(const std::string& name) const; ///< Just now, for so long that it may count as silent.

    /// Who is silent for so long has been reported: a third of the time until the PING, the time itself, and some more.
    static constexpr auto shortSilence = fn::Duration::seconds(5);
    fn::Duration longestSilence = shortSilence;

    fn::Duration leastFreeze = fn::Duration::seconds(2); ///< Less explains no silence.
    fn::Duration earliness; ///< Of the supervisor's timers.
    fn::Duration lateness = fn::Duration::seconds(1); ///< Of what the supervisor does, and of what it notices.
    fn::Duration slowUntil; ///< Nobody got the processor when he should have.
    std::optional<fn::Duration> proofTime; ///< When everybody begins to show that it is alive.

private:
    /// What the supervisor starts, by its name, and the main process.
    struct Supervised {
        bool isExpected = false;
        std::string tag = {}; // The rest is of its latest launch, or of all by one supervisor.
        int launches = 0;
        int timeouts = 0;
        bool isConnecting = false;
        bool wasConnected = false;
        bool isGivenUp = false;
        fn::Duration launched = {};
        std::optional<fn::Duration> end = {};
        std::set<std::string, std::less<>> harms = {};

        bool hasEnded() const
        {
            const auto ends = { "is killed", "is asked to end", "has no memory", "ends itself" };
            return std::ranges::any_of(ends, [this](const char* harm) { return harms.contains(harm); });
        }
    };
    struct Registration {
        int priority;
        bool isHidden = false;
        int hide = 0; // The last request that concerns it.
        std::optional<fn::Duration> hiddenSince = {}; // Known to be.
    };
    struct Thing {
        int owner = 0;
        ipc::ObjectId objectId = 0;
        bool isAlive = false;
        std::vector<Registration> registrations = {};
        std::optional<fn::Duration> registeredSince = {}; // One of these is done.
        int holds = 0; // Of its owner's own.
        std::size_t sends = 0; // By its owner, registrations aside; at most.
        std::int64_t events = 0;
        fn::Duration lastEvent = {};
    };
    struct Reference {
        int holder;
        ipc::ObjectId objectId;
        bool isLocal;
        int thing;
        bool
            isMistaken; // Brought by a message about a dead worker's object that was under way when the id was given out again.
        fn::Duration since;
        std::int64_t lastEvent = 0;
        bool isDead = false;
        bool isKept = false; // At rest.
    };
    struct LookUp {
        int caller = 0;
        fn::Duration begin;
        fn::Duration bound;
        bool isOver = false;
    };
    struct Call {
        Ask ask = Ask::Echo;
        int caller = 0;
        int owner = 0;
        int thing = 0;
        int reference = 0;
        bool isMistaken = false; // By a reference that is.
        bool bringsNothing = false; // The caller knows that its object is gone for good.
        bool hasArrived = false;
        bool mayFail = false; // What it led to has failed.
        bool hasCancelArrived = false;
        bool isCancelled = false;
        bool isOver = false;
    };
    struct Hiding {
        int request = 0;
        bool isShown = false; // Again, as the registry has said.
        fn::Duration since = {}; // All of this.
    };
    struct Post {
        int publisher;
        std::int64_t number;
        fn::Duration time = {};
    };
    struct Freeze {
        int process;
        std::string name;
        fn::Duration begin;
        fn::Duration end;
    };

    std::string speaker() const;
    void handleObject(const Event& event);
    void handleReference(const Event& event);
    void handleCall(const Event& event);
    void handleLookUp(const Event& event);
    void handleOther(const Event& event);
    void ends(int thing);
    void hearsDeath(Reference& reference);
    void begins(const Event& event, Call& call);
    void hasResult(const Event& event, const Call& call);
    void hasFailure(const Event& event, const Call& call);
    bool isShown(int owner, fn::Duration since) const;
    void finds(const LookUp& lookUp, const Thing& found);
    void findsNothing(const LookUp& lookUp, const std::string& text);
    void hides(const Event& event);
    void leaves(const Event& event);
    void isHarmed(const Event& event, const std::string& name);
    void supervises(const std::string& line);
    void isLaunched(const std::string& name, Supervised& module, const std::string& line);
    void ends(const std::string& name, Supervised& module);
    void checkTime(const std::string& what, fn::Duration due);
    fn::Duration frozen(const std::string& name, fn::Duration since) const; // Until now.
    bool isReferred(int thing, bool elsewhere) const;
    bool isUsedAgain(const Thing& thing) const;
    bool knowsSuccessor(int process, int owner) const;
    bool succeeds(int process, int owner) const;
    void checkCalls();
    void checkReference(int number, const Reference& reference);
    void checkBus();
    void checkThings();
    void checkSupervisor();
    void checkIdle();

    const bool _tells;
    int _speaker = 0; // Whose event is handled.
    std::map<int, Thing> _things;
    std::map<int, std::set<int>> _registered; // Of these, by owner: there are many, and all are kept.
    std::map<int, Call> _calls;
    std::map<int, Reference> _references;
    std::map<std::tuple<int, int, int>, std::int64_t> _heard; // Last number by listener, publisher, channel.
    std::map<ipc::ObjectId, int> _latest; // The last thing of that id.
    std::map<int, LookUp> _lookUps;
    std::map<std::pair<int, int>, Post> _posts; // The latest, by channel and publisher.
    std::map<int, Post> _bodies; // The sticky one that each process keeps.
    std::map<int, Hiding> _hidings; // The last one of each process.
    std::set<int> _toldToQuit;
    std::set<int> _proved;
    std::map<int, Connected> _connected; // All that ever were.
    std::map<std::string, Supervised> _supervised;
    std::vector<Freeze> _freezes;
    std::map<std::string, std::vector<fn::Duration>> _silences; // When which module was said not to respond.
    std::set<std::string> _givenUp; // Messages.
    std::set<int> _leaving;
    std::size_t _answers = 0;
    std::vector<std::string> _violations;
};

} // namespace simulated
