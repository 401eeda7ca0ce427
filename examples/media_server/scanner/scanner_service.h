#pragma once
#include "core/ipc/object/callable_object_instance.h"
#include "core/ipc_services/inspector/inspection_result_writer.h"
#include "scanner/scan_job.h"

namespace media {

/// The instance of the scanner. `Scanner` documents its methods.
class ScannerService final : public ipc::CallableObjectInstance {
public:
    explicit ScannerService(ipc::Worker& worker);

    void inspect(core::InspectionResultWriter& page) const; ///< Shows the present scan and its progress.

private:
    ~ScannerService() override;
    void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument) override;
    void onMethodCallCancelled(const CallContext& context) override;
    fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override;

    void scan(const CallContext& context, const fn::Value& argument);

    fn::AutoPtr<ScanJob> _job; // Empty while there is nothing to scan.
    CallContext _caller; // The caller that ordered the scan.
    int _scans = 0; // Scans begun so far.
};

} // namespace media
