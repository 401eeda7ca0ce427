#include "console/scan_observer_service.h"
#include "api/scan_observer.h"

namespace media {

ScanObserverService::ScanObserverService(ipc::Worker& worker, Callback callback)
    : CallableObjectInstance(worker),
      _callback(std::move(callback))
{
}

ScanObserverService::~ScanObserverService() = default;

fn::AutoPtr<ipc::ObjectReference> ScanObserverService::createReference(ipc::ObjectReferenceInitializer& initializer)
{
    return fn::makeAuto<ScanObserver>(initializer);
}

void ScanObserverService::onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument)
{
    if (name != "progress") return sendUnknownMethod(context, name);
    _callback(ScanProgress::fromValue(argument));
    sendResult(context);
}

} // namespace media
