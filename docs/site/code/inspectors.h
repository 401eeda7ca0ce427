#pragma once
// What the code of docs/inspectors.md finds.
#include "core/ipc/dispatcher/dispatcher.h"
#include "core/ipc/module_manager/module_manager.h"
#include "core/ipc_services/inspector/dispatcher_inspector.h"
#include "core/ipc_services/inspector/inspection_result_writer.h"
#include "core/ipc_services/inspector/inspector_registry.h"
#include "core/ipc_services/inspector/modules_inspector.h"
#include "core/ipc_services/inspector/publish_inspector.h"
#include "core/ipc_services/inspector/register_inspector_registry.h"
#include "core/ipc_services/inspector/registry_inspector.h"
#include "foundation/message_bus.h"
#include "tests/core/inspector/folder_inspector.h"
#include <fmt/format.h>

extern ipc::Dispatcher& dispatcher;
extern ipc::Worker& worker;
extern ipc::ModuleManager& manager;
extern std::vector<ipc::ModuleDefinition*> definitions;
extern std::map<fn::String, std::vector<fn::String>> folders;
extern int requests;
