#include "api/library.h"

namespace media {

Library::Library(ipc::ObjectReferenceInitializer& initializer) : CallableObjectReference(initializer) { }
Library::~Library() = default;

fn::Promise<void> Library::open(const fn::String& dataFolder)
{
    return callMethod("open", dataFolder).then([](fn::Value&&) {});
}

fn::Promise<ScanId> Library::beginScan(const fn::String& folder)
{
    return callMethod("beginScan", folder).then([](fn::Value&& scan) { return ScanId::fromValue(scan); });
}

fn::Promise<std::vector<std::size_t>> Library::compare(const ScanId& scan, const std::vector<FoundFile>& files)
{
    const auto argument = fn::Value::map({ { "scan", scan.toValue() }, { "files", toValues(files) } });
    return callMethod("compare", argument).then([](fn::Value&& positions) {
        std::vector<std::size_t> result;
        result.reserve(positions.size());
        for (const auto& position : positions.elements()) result.push_back(position.to<std::size_t>());
        return result;
    });
}

fn::Promise<void> Library::store(const ScanId& scan, const std::vector<ScannedFile>& files)
{
    const auto argument = fn::Value::map({ { "scan", scan.toValue() }, { "files", toValues(files) } });
    return callMethod("store", argument).then([](fn::Value&&) {});
}

fn::Promise<Totals> Library::finishScan(const ScanId& scan)
{
    return callMethod("finishScan", scan.toValue()).then([](fn::Value&& totals) { return Totals::fromValue(totals); });
}

} // namespace media
