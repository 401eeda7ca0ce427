#pragma once
#include "core/ipc/module.h"
#include "thing.h"

namespace simulated {

/// A module that does at random whatever a module can do.
class FN_EXPORT Actor final : public ipc::Module {
public:
    explicit Actor(const ipc::ModuleInitData& data);
    ~Actor() override;
    static Actor* inThisProcess();

    void onConnected() override;
    bool wantsIdleTermination() override { return Witness::current().mayEndIdle(); }
    bool canTerminate() override { return Witness::current().isResting(); }
    void terminate() override;
    void onAboutToQuit() override;

    void hold(fn::AutoPtr<ThingReference> reference);
    fn::AutoPtr<Thing> someThing(); ///< A new one or one of its own.
    fn::AutoPtr<ThingReference> someHeld();
    fn::Promise<fn::Value> call(const fn::AutoPtr<ThingReference>& reference, Ask ask, int& number);

private:
    struct Pending {
        int call;
        fn::Promise<void> promise; // Of what follows from it.
    };

    void actLater();
    void act();
    void callSomething();
    void callAnew();
    void callOn(const fn::AutoPtr<ThingReference>& reference, Ask ask);
    void cancelSomething();
    void cancel(const Pending& pending);
    void dropSomething();
    void registerThing(const fn::AutoPtr<Thing>& thing, int priority);
    fn::Promise<fn::AutoPtr<ThingReference>> find(fn::Duration bound);
    void findSomething();
    void hideAll();
    void post();
    void restLater();
    void proveAlive();
    void listen(int channel);

    std::vector<fn::AutoPtr<Thing>> _things;
    std::vector<fn::AutoPtr<ThingReference>> _held;
    std::vector<Pending> _pending;
    const bool _hasOwnProcess;
    fn::Handle _next;
    std::vector<fn::Handle> _listening;
};

} // namespace simulated
