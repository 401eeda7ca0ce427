#pragma once
#include "foundation/duration.h"
#include "foundation/string.h"
#include "witness.h"
#include <fmt/format.h>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace simulated {

/// What really happened in one run, and whether the library's account of it agrees. It is told in order what the participants
/// did and heard, whether at once or from a journal; of the world around it knows what its derived class says.
class FN_EXPORT Truth {
public:
    Truth(const Truth&) = delete;
    virtual ~Truth();

    bool isEnding = false; ///< All have been told to end.
    bool modulesEndIdle = false; ///< By themselves, when nobody needs them.
    static constexpr auto pongTime = fn::Duration::seconds(3); ///< For the answer to a PING.

    void handle(const Event& event);
    void expects(const fn::String& module) { _modules.push_back(module); } ///< The application has it.
    void checkAtRest();
    void violated(std::string what);

    std::size_t answers() const { return _answers; }
    const std::vector<std::string>& violations() const { return _violations; }

protected:
    explicit Truth(bool tells) : _tells(tells) { }

    virtual fn::Duration now() const = 0;
    virtual bool isRunning(int process) const = 0;
    virtual std::string nameOf(int process) const = 0;
    virtual int mainProcess() const = 0;
    virtual bool isThere(const fn::String& module) const = 0; ///< It runs; whether it is connected the truth knows.
    virtual bool isExplained(const std::string& text) const; ///< A line at warning level.
    virtual void checkWorld() { } ///< What else is to be checked at rest, while there is a hub.
    virtual void print(const std::string& line); ///< Of the story.

    bool isAlive(int process) const; ///< Neither killed nor about to end.
    bool isHubDead() const { return !isAlive(mainProcess()); }
    std::map<ipc::ObjectId, std::set<int>> heldObjects() const; ///< By whom, of living owners, elsewhere.
    std::multiset<std::pair<ipc::ObjectId, int>> registrations() const; ///< With priorities, of living owners.
    std::size_t countedObjects() const; ///< How many the hub must count.
    std::size_t openCalls() const; ///< That must end yet.
    void forget(int process); ///< It has gone: whatever it held and however long it was stopped.
    void excuseFreezes(); ///< Until now: nobody could notice them.
    const std::map<int, fn::Duration>& connected() const { return _connected; }

    /// Who is silent for so long has been reported: a third of the time until the PING, the time itself, and some more.
    fn::Duration longestSilence = fn::Duration::seconds(5);

private:
    struct Thing {
        int owner = 0;
        ipc::ObjectId objectId = 0;
        bool isAlive = false;
        std::multiset<int> priorities; // Of its registrations.
        int holds = 0; // Of its owner's own.
        std::size_t sends = 0; // By its owner, registrations aside; at most.
    };
    struct Reference {
        int holder;
        ipc::ObjectId objectId;
        bool isLocal;
        int thing = -1; // Once that is known.
        bool isDead = false;
    };
    struct Call {
        Ask ask;
        int caller = 0;
        int owner = 0;
        bool hasArrived = false;
        bool isCancelled = false;
        bool isOver = false;
    };
    struct Freeze {
        int process;
        std::string name;
        fn::Duration begin;
        fn::Duration end;
    };

    template <typename... Args> void tell(fmt::format_string<Args...> text, Args&&... args)
    {
        if (_tells) print(fmt::format("{}: {}", speaker(), fmt::format(text, std::forward<Args>(args)...)));
    }
    std::string speaker() const;
    void handleObject(const Event& event);
    void handleReference(const Event& event);
    void handleCall(const Event& event);
    void handleOther(const Event& event);
    Thing& thing(int number);
    Call& call(int number);
    void endsThing(int number);
    void hearsDeath(const Reference& reference);
    void begins(const Event& event);
    void ends(Call& call, int number);
    void hasResult(const Event& event);
    void hasFailure(const Event& event);
    bool isLateAnswer(const Call& call, const Event& answer) const;
    void hears(const Event& event);
    void isHarmed(const Event& event);
    void givesUp(const std::string& message);
    bool isOpen(const Call& call) const;
    bool isReferred(const Thing& thing, bool elsewhere) const;
    void checkCalls();
    void checkReferences();
    void checkThings();
    void checkModules();
    void checkFreezes();
    void checkIdle();

    const bool _tells;
    int _speaker = 0; // Whose event is handled.
    std::vector<Thing> _things;
    std::vector<Call> _calls;
    std::map<int, Reference> _references;
    std::map<std::pair<int, std::pair<int, int>>, std::int64_t> _heard; // Last number by listener, publisher, channel.
    std::map<std::string, int> _harms; // By name of the process.
    std::map<int, fn::Duration> _connected; // All that ever were, and since when.
    std::vector<fn::String> _modules;
    std::vector<Freeze> _freezes;
    std::map<std::string, std::vector<fn::Duration>> _silences; // When which module was said not to respond.
    std::set<std::string> _givenUp; // Messages.
    std::set<int> _leaving;
    std::size_t _answers = 0;
    std::vector<std::string> _violations;
};

} // namespace simulated
