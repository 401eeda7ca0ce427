// Owns the catalogue, in a process of its own.
#include "core/ipc/registry.h"
#include "core/ipc/run_module.h"
#include "core/ipc_services/inspector/publish_inspector.h"
#include "core/services/logging_profile/logging_profiles.h"
#include "library/library_service.h"

namespace media {

class LibraryModule final : public ipc::Module {
public:
    explicit LibraryModule(const ipc::ModuleInitData& data) : Module(data) { core::initLoggingProfiles("library"); }

    void onConnected() override
    {
        const auto service = fn::makeAuto<LibraryService>(worker());
        worker().registry()->registerObject(service, 0);
        core::publishInspector(worker(), "Library", [weak = fn::WeakPtr(service)](const fn::Value& action, auto& page) {
            if (const auto service = weak.lock()) service->inspect(action, page);
        });
    }
};

} // namespace media

IPC_MODULE_ENTRY_POINT(media::LibraryModule, "library")
