#pragma once
#include "core/ipc/object/callable_object_instance.h"
#include "growth/load.h"
#include <deque>
#include <functional>
#include <memory>

namespace bench::growth {

/// Who is measured, in a process of its own. Each is found by its part.
enum class Part { Owner, Holder, Other, Prober };

template <Part part> class SubjectReference final : public ipc::CallableObjectReference {
public:
    using CallableObjectReference::CallableObjectReference;
};

class ItemReference final : public ipc::CallableObjectReference {
public:
    using CallableObjectReference::CallableObjectReference;
};

/// One of many objects. It only answers "echo".
class Item final : public ipc::CallableObjectInstance {
public:
    explicit Item(ipc::Worker& worker);

    static std::size_t count(); ///< Of this process.
    static std::function<void()> onFewer; ///< One has gone.

protected:
    ~Item() override;
    fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override;
    void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument) override;
};

/// The object by which a process is told what to do. Methods:
///  - "echo" bytes: what they ask for;
///  - "items" {"from", "to"}: its items of these numbers, made where they are missing. It keeps them;
///  - "given" number: so many new items, which only their references keep;
///  - "hold" references: keeps them;
///  - "later" bytes: an echo that waits for "answer" number: the oldest so many are answered;
///  - "probe" boolean: begins to call the owner one call at a time, or ends it: {"median", "worst"} in microseconds;
///  - "die": the process ends at once.
class Subject : public ipc::CallableObjectInstance {
public:
    explicit Subject(Session& session);

    /// For "probe".
    void setProbed(fn::AutoPtr<ipc::CallableObjectReference> object) { _probed = std::move(object); }

protected:
    ~Subject() override;
    void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument) override;

private:
    struct LaterCall {
        CallContext context;
        fn::ByteArray argument;
    };

    fn::Value items(std::size_t from, std::size_t to);
    fn::Value given(std::size_t count);
    void answerOldest(std::size_t count);
    void probe(const CallContext& context, bool on);

    Session& _session;
    std::vector<fn::AutoPtr<Item>> _items;
    std::vector<fn::Value> _held;
    std::deque<LaterCall> _laterCalls;
    fn::AutoPtr<ipc::CallableObjectReference> _probed;
    std::unique_ptr<Load> _probe;
};

} // namespace bench::growth
