#pragma once
#include "core/services/app_identity.h"

namespace ipc {

/// Throws `fn::RuntimeException` where the root of this application (see fn::PathManager) says that it is another one's: two
/// applications with one id share nothing but mistakes. Nothing is said where none is installed.
void checkInstalledMarker(const core::AppIdentity& identity);

} // namespace ipc
