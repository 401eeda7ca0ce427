#pragma once
#include "api/scan_types.h"
#include "core/ipc/object/callable_object_reference.h"

namespace media {

/// A reference to the observer of a scan, for the scanner.
class FN_EXPORT ScanObserver final : public ipc::CallableObjectReference {
public:
    using CallableObjectReference::CallableObjectReference;

    /// Tells the progress of the scan. The scanner waits for the observer's answer.
    fn::Promise<void> progress(const ScanProgress& progress)
    {
        return callMethod("progress", progress.toValue()).then([](fn::Value&&) {});
    }
};

} // namespace media
