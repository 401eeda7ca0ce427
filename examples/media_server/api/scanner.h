#pragma once
#include "api/library.h"
#include "api/scan_observer.h"
#include "core/ipc/object/object_instance.h"

namespace media {

/// A reference to the scanner, which reads folders, one at a time, for a library.
class FN_EXPORT Scanner final : public ipc::CallableObjectReference {
public:
    using CallableObjectReference::CallableObjectReference;

    /// Updates the library's knowledge of a folder; the caller then calls `Library::finishScan()`. Gives the folders that could not
    /// be read, whose files were not found.
    ///
    /// `observer` is an instance shared as ScanObserver; the scan ends when it has answered that all files are done. Cancelling
    /// ends the scan: files that are in the catalogue by then stay there, and the next attempt with the same ScanId finds
    /// them.
    fn::Promise<PathSample> scan(const fn::String& folder, const ScanId& scan, const fn::AutoPtr<Library>& library,
        const fn::AutoPtr<ipc::ObjectInstance>& observer)
    {
        const auto argument = fn::Value::map(
            { { "folder", folder }, { "scan", scan.toValue() }, { "library", library }, { "observer", observer } });
        return callMethod("scan", argument).then([](fn::Value&& unreadable) {
            return PathSample::fromValue(unreadable);
        });
    }
};

} // namespace media
