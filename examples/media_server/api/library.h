#pragma once
#include "api/scan_types.h"
#include "core/ipc/object/callable_object_reference.h"

namespace media {

/// A reference to the library, which keeps the catalogue of all folders that were ever scanned.
class FN_EXPORT Library final : public ipc::CallableObjectReference {
public:
    using CallableObjectReference::CallableObjectReference;

    /// Opens the catalogue in this folder, and makes either if it is missing. The other methods may be called afterwards.
    /// One library at a time can open a catalogue: another one waits for a moment, then fails.
    fn::Promise<void> open(const fn::String& dataFolder)
    {
        return callMethod("open", dataFolder).then([](fn::Value&&) {});
    }

    /// Starts the next scan of a folder.
    fn::Promise<ScanId> beginScan(const fn::String& folder)
    {
        return callMethod("beginScan", folder).then([](fn::Value&& scan) { return ScanId::fromValue(scan); });
    }

    /// Notes the files that are unchanged since the catalogue has read them as found by this scan. Gives the positions of the
    /// others, which must be read.
    fn::Promise<std::vector<std::size_t>> compare(const ScanId& scan, const std::vector<FoundFile>& files)
    {
        return callMethod("compare", argument(scan, files)).then([](fn::Value&& positions) {
            std::vector<std::size_t> result;
            for (const auto& position : positions.elements()) result.push_back(position.to<std::size_t>());
            return result;
        });
    }

    /// Notes files as found and read by this scan: all of them or, if the promise is rejected, none.
    fn::Promise<void> store(const ScanId& scan, const std::vector<ScannedFile>& files)
    {
        return callMethod("store", argument(scan, files)).then([](fn::Value&&) {});
    }

    /// Forgets the folder's files that this scan has not found, and sums up the others.
    fn::Promise<Totals> finishScan(const ScanId& scan)
    {
        return callMethod("finishScan", scan.toValue()).then([](fn::Value&& totals) {
            return Totals::fromValue(totals);
        });
    }

private:
    template <typename T> static fn::Value argument(const ScanId& scan, const std::vector<T>& files)
    {
        return fn::Value::map({ { "scan", scan.toValue() }, { "files", toValues(files) } });
    }
};

} // namespace media
