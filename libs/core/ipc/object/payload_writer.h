#pragma once
#include "base/function_ref.h"
#include "core/ipc/object/object_reference.h"
#include "foundation/mpack/serializer.h"
#include <vector>

namespace ipc {

class ObjectInstance;

/// A payload for a receiver in the sender's own worker. It holds the objects that its bytes mention.
struct EncodedPayload {
    fn::ByteArray bytes; ///< One MessagePack value.
    std::vector<fn::AutoPtr<ObjectReference>> objects;
};

/// Writes the payload of a message, straight into its frame. Shared objects become extension values, and are noted. Throws for
/// what cannot travel; the payload is not sent then.
class FN_EXPORT PayloadWriter final : public fn::mpack::Serializer, private fn::mpack::ValueSerializer {
public:
    /// For objects of `host`. `held`, if given, is where the objects that are written are held.
    PayloadWriter(
        fn::OutputStream& stream, const ObjectHost& host, std::vector<fn::AutoPtr<ObjectReference>>* held = nullptr);
    ~PayloadWriter() override;

    /// Nil for null, and for an object whose owner's id names another worker by now.
    void writeObject(const fn::AutoPtr<ObjectReference>& reference);
    void writeObject(const fn::AutoPtr<ObjectInstance>& instance);

    /// Writes a value that was encoded before.
    void embed(const EncodedPayload& payload);

    /// The class names of the shared objects, by ObjectId; nil if there is none.
    const fn::Value& objects() const { return _objects; }

    /// Throws for a boxed value that has no form on the wire, an object that is not shared, and an object of another worker of
    /// this process, which would not know that it has been sent.
    static void checkSendable(const fn::Value& value, const ObjectHost& host);

private:
    std::int8_t typeForValue(const fn::Value& value) override;
    void serializeValue(const fn::Value& value, fn::OutputStream& stream) override;
    std::uint32_t serializedLengthForValue(const fn::Value& value) override;
    void note(ObjectReference& reference);
    void noteObject(ObjectReference& reference);
    static void checkOwner(const ObjectHost* owner, const ObjectHost& sender);

    const ObjectHost& _host;
    std::vector<fn::AutoPtr<ObjectReference>>* _held;
    fn::Value _objects;
};

/// Writes a payload when it is asked to; may be asked again.
using PayloadSource = fn::FunctionRef<void(PayloadWriter&)>;

} // namespace ipc
