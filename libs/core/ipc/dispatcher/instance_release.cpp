#include "core/ipc/dispatcher/instance_release.h"
#include "core/ipc/limits.h"
#include "core/ipc/wire/frame_output_stream.h"
#include "foundation/mpack/serializer.h"

namespace ipc {
namespace {

constexpr std::uint8_t mapOfThree = 0x83;

} // namespace

Frame encodeInstanceRelease(ObjectId objectId, std::uint32_t count)
{
    FrameOutputStream stream;
    fn::mpack::Serializer serializer(stream);
    stream.writeByte(mapOfThree);
    stream.writeByte(field::TYPE);
    stream.writeByte(type::INSTANCE_RELEASE);
    stream.writeByte(field::OBJECT_ID);
    serializer.serialize(objectId);
    stream.writeByte(field::USAGE_COUNT);
    serializer.serialize(count);
    return stream.finish(limits::workerFrameBytes);
}

} // namespace ipc
