// Reads folders, in a process of its own: a file that brings it down brings down nothing else.
#include "api/inspection.h"
#include "api/log_output.h"
#include "api/service_inspector.h"
#include "core/ipc/registry.h"
#include "core/ipc/run_module.h"
#include "scanner/scanner_service.h"

namespace media {

class ScannerModule final : public ipc::Module {
public:
    explicit ScannerModule(const ipc::ModuleInitData& data) : Module(data)
    {
        chooseFolders();
        startLogging("scanner");
    }

    void onConnected() override
    {
        worker().registerObjectReferenceClass<Library>();
        worker().registerObjectReferenceClass<ScanObserver>();
        const auto service = fn::makeAuto<ScannerService>(worker());
        worker().registry()->registerObject(service, 0);
        publish(worker(), "Scanner", fn::makeAuto<ServiceInspector<ScannerService>>(service));
    }
};

} // namespace media

IPC_MODULE_ENTRY_POINT(media::ScannerModule, "scanner")
