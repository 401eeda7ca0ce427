#pragma once
// All that a user of objects needs: applications, modules, interfaces, services, and calls.
// docs/headers.md says which headers are for whom.
#include "core/ipc/application.h"
#include "core/ipc/interface/codec.h"
#include "core/ipc/interface/codec_containers.h"
#include "core/ipc/interface/event.h"
#include "core/ipc/interface/find.h"
#include "core/ipc/interface/method.h"
#include "core/ipc/interface/property.h"
#include "core/ipc/interface/reference.h"
#include "core/ipc/interface/remote.h"
#include "core/ipc/interface/service.h"
#include "core/ipc/interface/value_conversion.h"
#include "core/ipc/module_manager/module_options.h"
#include "core/ipc/object/object_dead_exception.h"
#include "core/ipc/object/tracing.h"
#include "core/ipc/service_module.h"
