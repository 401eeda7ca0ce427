#include "core/services/preferences.h"
#include "base/exceptions.h"
#include "core/services/detail/preferences_format.h"
#include "foundation/io/buffered_output_stream.h"
#include "foundation/io/file.h"
#include "foundation/io/file_input_stream.h"
#include "foundation/io/file_output_stream.h"
#include "foundation/io/stream_reader.h"
#include "foundation/json/deserializer.h"
#include "foundation/json/serializer.h"
#include "foundation/system/uuid.h"
#include "foundation/unhandled_exception.h"
#include "foundation/value_map.h"
#include <vector>

namespace core {
namespace {

constexpr int fileMode = 0644;
constexpr std::size_t bufferBytes = 8192;

void requireMap(const fn::Value& root)
{
    if (root.isMap()) return;
    throw fn::with(fn::DataFormatException("The root of preferences is no map"), fn::DetailInfo { root.detailInfo() });
}

/// Throws for maps with the key "__type__": the file would hold them, but reading it would change them or fail.
void requireUntagged(const fn::Value& root)
{
    std::vector<const fn::Value*> rest { &root };
    while (!rest.empty()) {
        const auto& value = *rest.back();
        rest.pop_back();
        if (value.isArray()) {
            for (const auto& element : value.elements()) rest.push_back(&element);
        } else if (value.isMap()) {
            if (value.has("__type__"))
                throw fn::with(fn::RangeException("The key \"__type__\" of a map is reserved"),
                    fn::DetailInfo { value.detailInfo() });
            for (const auto& [key, member] : value.entries()) rest.push_back(&member);
        }
    }
}

} // namespace

Preferences::Preferences(const fn::String& path) : _path(path), _root(fn::Value::MAP) { }

void Preferences::reload() { _root = loadInternal(); }

void Preferences::save()
{
    saveInternal();
    try {
        loadInternal();
    } catch (...) {
        fn::unhandledException();
        saveInternal();
    }
}

void Preferences::saveInternal() const
{
    // The transform would cut the first bytes of any value but a map, and the old file would be lost.
    requireMap(_root);
    requireUntagged(_root);
    const auto temporary = _path + "-" + fn::UUIDGenerator::defaultGenerator().createOne().toString() + ".tmp";
    fn::FileOutputStream file(fn::FileDescriptor::write(temporary, fileMode));
    fn::BufferedOutputStream buffered(file, bufferBytes);
    detail::OutputTransform transform;
    fn::TransformOutputStream stream(buffered, transform);
    detail::Serializer serializer;
    fn::json::serialize(_root, stream, true, &serializer);
    stream.close(true);
    // The new name may reach the disk before the bytes do: after a crash of the system an empty file would stand in the
    // place of the old one.
    file.descriptor().sync();
    file.close();
    fn::File(temporary).moveTo(_path);
}

fn::Value Preferences::loadInternal() const
{
    if (!fn::File(_path).exists()) return fn::Value(fn::Value::MAP);
    try {
        fn::FileInputStream stream(fn::FileDescriptor::readRegular(_path));
        fn::ByteArray text("{");
        fn::StreamReader::readEverything(stream, text);
        text.append("}", 1);
        detail::Deserializer deserializer;
        auto root = fn::json::deserialize(text.view(), &deserializer, _path);
        requireMap(root);
        return root;
    } catch (fn::Exception& exception) {
        exception.attach(fn::PathInfo { _path });
        throw;
    }
}

} // namespace core
