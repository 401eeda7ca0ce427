#pragma once
#include "api/scan_types.h"
#include "core/ipc/object/callable_object_instance.h"
#include <folly/Function.h>

namespace media {

/// The observer that the console hands to the scanner with its order.
class ScanObserverService final : public ipc::CallableObjectInstance {
public:
    using Callback = folly::Function<void(const ScanProgress&)>;

    ScanObserverService(ipc::Worker& worker, Callback callback); ///< The scanner goes on when `callback` has returned.

private:
    ~ScanObserverService() override;
    void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument) override;
    fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override;

    Callback _callback;
};

} // namespace media
