#include "api/scan_observer.h"

namespace media {

ScanObserver::ScanObserver(ipc::ObjectReferenceInitializer& initializer) : CallableObjectReference(initializer) { }
ScanObserver::~ScanObserver() = default;

fn::Promise<void> ScanObserver::progress(const ScanProgress& progress)
{
    return callMethod("progress", progress.toValue()).then([](fn::Value&&) {});
}

} // namespace media
