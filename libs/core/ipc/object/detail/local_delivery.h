#pragma once
#include "foundation/value.h"

namespace ipc {

class ObjectHost;

/// The payload for a receiver in the sender's own worker: with each instance, at any depth, replaced by its local reference,
/// since no receiver sees an instance. A payload without instances is shared, not copied.
///
/// Throws for a payload that could not be sent to another worker, with the same exception; but no size is too large.
fn::Value replaceInstanesWithReferences(const fn::Value& value, const ObjectHost& host);

} // namespace ipc
