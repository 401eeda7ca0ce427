#pragma once
#include "foundation/value.h"

namespace ipc {

/// What a local receiver gets of a payload: instances replaced by their local references, at any depth. A receiver never
/// sees an instance, here as from afar. Payloads without instances are shared, not copied.
fn::Value replaceInstanesWithReferences(const fn::Value& value);

} // namespace ipc
