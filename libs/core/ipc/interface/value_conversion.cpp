#include "core/ipc/interface/value_conversion.h"
#include "base/exceptions.h"
#include "core/ipc/object/detail/mismatch.h"
#include "core/ipc/object/detail/object_host.h"
#include "foundation/run_loop.h"

namespace ipc {
namespace {

/// Of no worker: no object belongs to it, and none can be sent.
class NoHost final : public ObjectHost {
public:
    NoHost() : ObjectHost(fn::RunLoop::defaultLoop()) { }

    void send(WorkerId, ObjectId, PayloadSource) override { }
    fn::AutoPtr<ObjectReference> referenceTo(ObjectId, const fn::String&) override { return {}; }
    void countReceived(std::span<const ObjectId>) override { }
    void registerFactory(const fn::String&, ReferenceFactory, bool) override { }
    ObjectId nextObjectId() override { return {}; }
    void registerInstance(ObjectInstance&) override { }
    void unregisterInstance(ObjectInstance*) override { }
    void registerReference(ObjectReference&) override { }
    void unregisterReference(ObjectReference*) override { }
};

} // namespace

fn::Value internal::decodeValue(PayloadSource source)
{
    const auto host = fn::makeAuto<NoHost>();
    return PayloadReader(*host, host->encode(source)).readAll();
}

void internal::encodeValue(const fn::Value& value, const fn::String& what, fn::FunctionRef<void(PayloadReader&)> read)
{
    const auto host = fn::makeAuto<NoHost>();
    const auto encoded = host->encode([&](PayloadWriter& writer) { writer.serialize(value); });
    PayloadReader reader(*host, encoded);
    try {
        read(reader);
    } catch (const fn::mpack::MismatchException& mismatch) {
        throwMismatch(what, encoded.bytes.bytes(), 0, mismatch);
    }
}

} // namespace ipc
