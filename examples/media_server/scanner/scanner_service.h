#pragma once
#include "core/ipc/interface/service.h"
#include "core/ipc_services/inspector/inspection_result_writer.h"
#include "scanner/scan_job.h"
#include <memory>

namespace media {

class ScannerService final : public ipc::Service<ScannerService, Scanner> {
public:
    using Service::Service;

    fn::Promise<PathSample> scan(ScanOrder order);

    void inspect(core::InspectionResultWriter& page) const; ///< Shows the present scan and its progress.

private:
    std::weak_ptr<const ScanJob> _job; // Expired while there is nothing to scan.
    int _scans = 0; // Scans begun so far.
};

} // namespace media
