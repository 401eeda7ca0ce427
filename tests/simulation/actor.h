#pragma once
#include "core/ipc/module.h"
#include "thing.h"
#include <map>

namespace simulated {

/// A module that does at random whatever a module can do.
class FN_EXPORT Actor final : public ipc::Module {
public:
    explicit Actor(const ipc::ModuleInitData& data);
    ~Actor() override;
    static Actor* inThisProcess();

    void onConnected() override;
    bool wantsIdleTermination() override { return Witness::current().mayEndIdle(); }
    bool canTerminate() override { return Witness::current().isResting() || choose(4) < 3; }
    void terminate() override;
    void onAboutToQuit() override;

    void hold(fn::AutoPtr<ThingReference> reference);
    fn::AutoPtr<Thing> someThing(); ///< A new one or one of its own.
    fn::AutoPtr<ThingReference> someHeld();
    /// The number of the call, and its answer.
    std::pair<int, fn::Promise<fn::Value>> call(const fn::AutoPtr<ThingReference>& reference, Ask ask);

private:
    void actLater();
    void act();
    void callSomething();
    void callAnew();
    int callOn(const fn::AutoPtr<ThingReference>& reference, Ask ask);
    fn::Value argumentOf(int call, Ask ask);
    void cancelSomething();
    void cancel(int call);
    void dropSomething();
    void registerThing(const fn::AutoPtr<Thing>& thing, int priority);
    fn::Promise<fn::AutoPtr<ThingReference>> find(fn::Duration bound);
    void findSomething();
    void hideAll();
    void post();
    void proveAlive();

    std::vector<fn::AutoPtr<Thing>> _things;
    std::vector<fn::AutoPtr<ThingReference>> _held;
    std::map<int, fn::Promise<void>> _pending; // By the number of the call: what follows from it.
    const bool _hasOwnProcess;
    fn::Handle _next;
    fn::Handle _listening;
};

} // namespace simulated
