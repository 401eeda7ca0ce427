// Owns the catalogue, in a process of its own.
#include "api/inspection.h"
#include "api/log_output.h"
#include "api/service_inspector.h"
#include "core/ipc/registry.h"
#include "core/ipc/run_module.h"
#include "library/library_service.h"

namespace media {

class LibraryModule final : public ipc::Module {
public:
    explicit LibraryModule(const ipc::ModuleInitData& data) : Module(data)
    {
        chooseFolders();
        startLogging("library");
    }

    void onConnected() override
    {
        const auto service = fn::makeAuto<LibraryService>(worker());
        worker().registry()->registerObject(service, 0);
        publish(worker(), "Library", fn::makeAuto<ServiceInspector<LibraryService>>(service));
    }
};

} // namespace media

IPC_MODULE_ENTRY_POINT(media::LibraryModule, "library")
