// Owns the catalogue, in a process of its own.
#include "api/log_output.h"
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

    void onConnected() override { worker().registry()->registerObject(fn::makeAuto<LibraryService>(worker()), 0); }
    void onAboutToQuit() override { terminate(); }
};

} // namespace media

IPC_MODULE_ENTRY_POINT(media::LibraryModule, "library")
