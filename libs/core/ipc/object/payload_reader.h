#pragma once
#include "core/ipc/object/object_reference.h"
#include "foundation/mpack/hooks.h"
#include "foundation/mpack/reader.h"
#include <exception>
#include <vector>

namespace ipc {

class CallFields;
class MessageView;
struct EncodedPayload;

/// Reads the payload of a message where the frame lies. Object ids become references of their classes.
///
/// A message that came from another worker is to be counted for the references to the objects that it lists, when they have been made and
/// before others run: `finish()`, at the latest the destructor, does that.
class FN_EXPORT PayloadReader final : public fn::mpack::Reader, private fn::mpack::ValueDeserializer {
public:
    PayloadReader(ObjectHost& host, const MessageView& message); ///< Borrows the message, which has a payload of bytes.
    PayloadReader(ObjectHost& host, const EncodedPayload& payload); ///< Borrows the payload, which was encoded here.
    PayloadReader(const PayloadReader&) = delete;
    PayloadReader& operator=(const PayloadReader&) = delete;
    ~PayloadReader() override;

    /// Reads any value. Nil stands for a part that could not be made (a reference class may throw): `failure()` tells why.
    fn::Value readValue();

    fn::Value readAll(); ///< The whole payload as one value, and finishes.

    /// The object that comes, empty for nil. A remote one that this worker has no class for is made by `factory`, if given.
    using ReferenceFactory = fn::AutoPtr<ObjectReference> (*)(ObjectReferenceInitializer&);
    fn::AutoPtr<ObjectReference> readObject(const fn::String& className = {}, ReferenceFactory factory = nullptr);

    /// The exception of the first part that could not be made; null if there is none.
    const std::exception_ptr& failure() const { return _failure; }

    void finish(); ///< Nothing more is read. A second call does nothing.
    bool isFinished() const { return _isFinished; }

    ObjectHost& host() const { return _host; }

private:
    fn::Value deserializeValue(std::int8_t type, std::uint32_t size, fn::InputStream& stream) override;
    fn::Value decodeExtension(std::int8_t type, std::uint32_t size, fn::InputStream& stream);
    fn::AutoPtr<ObjectReference> decodeObject(ObjectId objectId);

    ObjectHost& _host;
    const MessageView* _message = nullptr; // Null for what was encoded here.
    std::vector<ObjectId> _objectIds; // What the message lists, until it is counted.
    fn::Value _objects; // The class names of these, once an object was asked for.
    std::vector<fn::AutoPtr<ObjectReference>> _made; // Held until they are counted, since reading may drop them.
    std::exception_ptr _failure;
    bool _isFinished = false;
};

/// An object that reads its payloads itself, where they lie, instead of getting each as a value.
class PayloadReceiver {
public:
    /// `payload` reads where the message lies. `source` is the sender's worker.
    virtual void onPayload(WorkerId source, const CallFields& payload) = 0;

protected:
    ~PayloadReceiver() = default;
};

} // namespace ipc
