#pragma once
#include "core/ipc/object/callable_object_instance.h"
#include "core/ipc/object/callable_object_reference.h"
#include "truth.h"

namespace simulated {

class Actor;

/// An object that everybody gives to everybody, as its users see it.
class FN_EXPORT ThingReference final : public ipc::CallableObjectReference {
public:
    explicit ThingReference(ipc::ObjectReferenceInitializer& initializer);
    ~ThingReference() override;

    int thing = -1; ///< The truth's number of it, once that is known.
    Process* process = nullptr; ///< Where it is held; null for samples.
    int lastEvent = 0;
    bool hasDied = false;

private:
    void onEvent(const fn::String& name, const fn::Value& argument) override;
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
    void answer(const CallContext& context, Ask ask, int call, const fn::Value& argument);
    void answerLater(const CallContext& context, int call);
    void callOn(const CallContext& context, int call, const fn::AutoPtr<ThingReference>& other);

    int _events = 0;
};

/// The reference in what `Thing::asValue()` gave. The same reference always stands for the same thing.
fn::AutoPtr<ThingReference> thingIn(const fn::Value& value);

} // namespace simulated
