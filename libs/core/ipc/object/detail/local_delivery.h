#pragma once
#include "foundation/value.h"

namespace ipc {

class WorkerObjectManager;

/// What a receiver in the sender's own worker gets of a payload: instances replaced by their local references, at any depth. A
/// receiver never sees an instance, here as from afar. Payloads without instances are shared, not copied.
///
/// What could not be sent to another worker is refused here as well, with the same exception; no size is too large.
fn::Value replaceInstanesWithReferences(const fn::Value& value, const WorkerObjectManager& manager);

} // namespace ipc
