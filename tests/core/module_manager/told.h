#pragma once
#include "core/ipc/interface/interface.h"
#include "core/ipc/interface/method.h"
#include "core/ipc/interface/value_conversion.h"

namespace test {

struct Settings {
    fn::String folder;
    int depth = 1;
};
FN_FIELDS(Settings, folder, depth)

/// What the module test_told has been told.
struct Told : ipc::Interface<Told> {
    ipc::Method<Settings()> settings;
    IPC_MEMBERS(settings)
};

} // namespace test
