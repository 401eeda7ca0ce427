#pragma once
#include "api/application.h"
#include "core/ipc/object/callable_object_instance.h"
#include <folly/Function.h>
#include <optional>

namespace media {

/// The instance that represents the main program for its modules, in the dispatcher's own worker. See `Application`.
class ApplicationService final : public ipc::CallableObjectInstance {
public:
    /// Handles the calls of the modules.
    class Owner {
    public:
        virtual RunOptions options() = 0;
        using NextScan = folly::Function<void(const std::optional<RunOptions>& options)>;
        virtual void nextScan(NextScan answer) = 0; ///< Answers now or later.
        virtual void finish(int exitCode, const fn::String& message) = 0;

    protected:
        ~Owner() = default;
    };

    ApplicationService(ipc::Worker& worker, Owner& owner); ///< Borrows the owner.

private:
    ~ApplicationService() override;
    void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument) override;
    fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override;

    Owner& _owner;
};

} // namespace media
