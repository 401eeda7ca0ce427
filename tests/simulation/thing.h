#pragma once
#include "core/ipc/object/callable_object_instance.h"
#include "core/ipc/object/callable_object_reference.h"
#include "witness.h"

namespace simulated {

class Actor;

/// An object that everybody gives to everybody, as its users see it.
class FN_EXPORT ThingReference final : public ipc::CallableObjectReference {
public:
    explicit ThingReference(ipc::ObjectReferenceInitializer& initializer);
    ~ThingReference() override;

    int number() const { return _number; } ///< The witness's.
    int thing() const { return _thing; } ///< Its number; -1 until that is known.
    void recognize(int thing);

private:
    void onEvent(const fn::String& name, const fn::Value& argument) override;
    void onObjectDead() override;
    void onDeath();

    int _number = 0; // 0 for samples.
    int _thing = -1;
    bool _hasDied = false;
};

/// The same where it lives.
class FN_EXPORT Thing final : public ipc::CallableObjectInstance {
public:
    explicit Thing(ipc::Worker& worker);
    ~Thing() override;

    fn::Value asValue(); ///< Itself and its number.
    const int number;

private:
    fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override;
    void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument) override;
    void onMethodCallCancelled(const CallContext& context) override;
    void answer(const CallContext& context, Ask ask, int call, const fn::Value& argument);
    void answerLater(const CallContext& context, int call);
    void callOn(const CallContext& context, int call, const fn::AutoPtr<ThingReference>& other);

    int _events = 0;
    std::vector<std::pair<CallContext, int>> _calls; // All that have come.
};

/// The reference in what `Thing::asValue()` gave. The same reference always stands for the same thing.
fn::AutoPtr<ThingReference> thingIn(const fn::Value& value);

fn::Value bulk(); ///< What fills many reads.

} // namespace simulated
