#include "core/ipc/object/detail/mismatch.h"
#include "foundation/io/memory_input_stream.h"
#include "foundation/mpack/deserializer.h"
#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace ipc {
namespace {

constexpr std::size_t mostShown = 100; // Bytes of the text of a value that did not fit.

/// The name of the part of a container that holds the value at `target`, after which the reader stands at that part.
fn::String partAt(fn::mpack::Reader& reader, std::size_t target, bool isMap, std::uint32_t count, bool areArguments)
{
    for (std::uint32_t i = 0; i < count; ++i) {
        fn::String name;
        if (isMap && reader.nextIsText())
            name = ", field " + fn::String(reader.readText());
        else if (isMap)
            reader.skip();
        else if (areArguments)
            name = ", argument " + fn::String::number(i + 1);
        else
            name = ", element " + fn::String::number(i);
        const auto begin = reader.offset();
        reader.skip();
        if (reader.offset() <= target) continue;
        reader.setOffset(begin);
        return name;
    }
    return {};
}

/// Where in the value at `start` the value at `target` lies.
fn::String pathTo(fn::ByteView bytes, std::size_t start, std::size_t target, bool areArguments)
{
    fn::String path;
    fn::mpack::Reader reader(bytes);
    reader.setOffset(start);
    while (reader.offset() < target) {
        const bool isMap = reader.nextIsMap();
        if (!isMap && !reader.nextIsArray()) break;
        const auto count = isMap ? reader.beginMap() : reader.beginArray();
        const auto part = partAt(reader, target, isMap, count, std::exchange(areArguments, false));
        if (part.empty()) break;
        path += part;
    }
    return path;
}

fn::String valueAt(fn::ByteView bytes, std::size_t offset)
{
    const auto rest = bytes.subspan(std::min(offset, bytes.size()));
    if (rest.empty()) return "nothing";
    fn::MemoryInputStream stream(rest.data(), rest.size());
    fn::mpack::Deserializer deserializer(stream);
    deserializer.setMaxValues(mostShown);
    const auto value = deserializer.deserialize();
    const auto text = value.value_or(fn::Value()).toString();
    return text.size() <= mostShown ? text : text.substring(0, mostShown) + "...";
}

} // namespace

void throwMismatch(const fn::String& what, fn::ByteView bytes, std::size_t start,
    const fn::mpack::MismatchException& mismatch, bool areArguments)
{
    fn::String path;
    fn::String came = "something else"; // Malformed, or of many values.
    try {
        path = pathTo(bytes, start, mismatch.offset(), areArguments);
        came = valueAt(bytes, mismatch.offset());
    } catch (const fn::Exception&) {
        // Malformed behind the place, or at it.
    }
    throw fn::DataFormatException(fmt::format("{}{}: expected {}, got {}", what, path, mismatch.expected(), came),
        fn::Exception::StackTrace::None);
}

} // namespace ipc
