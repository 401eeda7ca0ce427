#pragma once
#include "core/ipc/object/callable_object_instance.h"
#include "core/ipc_services/inspector/inspection_result_writer.h"
#include "scanner/scan_job.h"

namespace media {

/// The scanner where it lives. See `Scanner` for what its methods mean.
class ScannerService final : public ipc::CallableObjectInstance {
public:
    explicit ScannerService(ipc::Worker& worker);

    void inspect(core::InspectionResultWriter& page) const; ///< What is being scanned, and how far it has come.

private:
    ~ScannerService() override;
    void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument) override;
    void onMethodCallCancelled(const CallContext& context) override;
    fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override;

    void scan(const CallContext& context, const fn::Value& argument);

    fn::AutoPtr<ScanJob> _job; // Empty while there is nothing to scan.
    CallContext _caller; // Who ordered it.
    int _scans = 0; // Begun.
};

} // namespace media
