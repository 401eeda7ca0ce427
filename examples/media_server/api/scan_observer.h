#pragma once
#include "api/scan_types.h"
#include "core/ipc/object/callable_object_reference.h"

namespace media {

/// Whoever ordered a scan, as the scanner sees it.
class FN_EXPORT ScanObserver final : public ipc::CallableObjectReference {
public:
    using CallableObjectReference::CallableObjectReference;

    /// Tells how far the scan is. An observer that does not answer holds the scanner up.
    fn::Promise<void> progress(const ScanProgress& progress)
    {
        return callMethod("progress", progress.toValue()).then([](fn::Value&&) {});
    }
};

} // namespace media
