#pragma once
#include "core/ipc/module_manager/module_definition.h"
#include "foundation/system/shared_library.h"

namespace ipc {

/// A module library loaded into this process, at most once: it cannot be relaunched or killed.
class InProcessModule final : public ModuleDefinition {
public:
    InProcessModule(fn::String name, bool runsMainLoop);

    bool runsMainLoop() override { return _runsMainLoop; }
    void launch(Dispatcher& dispatcher, const fn::String& workerTag) override;
    void kill() override;
    bool isSeparateProcess() override { return false; }
    std::optional<fn::String> executablePath() override { return std::nullopt; }
    fn::String name() override { return _name; }
    ~InProcessModule() override;

private:
    const fn::String _name;
    fn::SharedLibrary _library;
    const bool _runsMainLoop;
};

} // namespace ipc
