#pragma once
#include "api/application.h"
#include "core/ipc/object/callable_object_instance.h"
#include <folly/Function.h>

namespace media {

/// The main program as an object for its modules, living in the dispatcher's own worker. See `Application`.
class ApplicationService final : public ipc::CallableObjectInstance {
public:
    using Finish = folly::Function<void(int exitCode, const fn::String& message)>;

    ApplicationService(ipc::Worker& worker, RunOptions options, Finish finish);

private:
    ~ApplicationService() override;
    void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument) override;
    fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override;

    const RunOptions _options;
    Finish _finish;
};

} // namespace media
