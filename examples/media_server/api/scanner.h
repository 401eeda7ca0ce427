#pragma once
#include "api/library.h"
#include "api/scan_observer.h"
#include "core/ipc/object/object_instance.h"

namespace media {

/// The scanner as its users see it: it reads folders, one at a time, for a library.
class FN_EXPORT Scanner final : public ipc::CallableObjectReference {
public:
    using CallableObjectReference::CallableObjectReference;

    /// Brings what the library knows of a folder up to date, up to `Library::finishScan()`. Gives the folders that could
    /// not be read: what lies in them was not found.
    ///
    /// `observer` is an instance shared as ScanObserver; before the scan ends it has been told that all is done, and has
    /// answered. Cancelling ends the scan: what is in the catalogue by then stays there, and the next attempt with the
    /// same ScanId finds it.
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
