// Reads folders, in a process of its own: a file that crashes the scanner crashes no other process.
#include "core/ipc/registry.h"
#include "core/ipc/run_module.h"
#include "core/ipc_services/inspector/publish_inspector.h"
#include "core/services/logging_profile/logging_profiles.h"
#include "scanner/scanner_service.h"

namespace media {

class ScannerModule final : public ipc::Module {
public:
    explicit ScannerModule(const ipc::ModuleInitData& data) : Module(data) { core::initLoggingProfiles("scanner"); }

    void onConnected() override
    {
        const auto service = fn::makeAuto<ScannerService>(worker());
        worker().registry()->registerObject(service, 0);
        core::publishInspector(worker(), "Scanner", [weak = fn::WeakPtr(service)](const fn::Value&, auto& page) {
            if (const auto service = weak.lock()) service->inspect(page);
        });
    }
};

} // namespace media

IPC_MODULE_ENTRY_POINT(media::ScannerModule, "scanner")
