#pragma once
#include "foundation/value.h"
#include "foundation/value_map.h"
#include <atomic>

namespace fn::internal {

/// The storage that unchanged copies of an array or map share.
struct ContainerStorage {
    explicit ContainerStorage(Value::Kind storedKind) noexcept : kind(storedKind) { }

    bool isUnique() const noexcept { return references.load(std::memory_order_acquire) == 1; }
    /// Gives up one reference, and returns whether it was the last. A holder that is alone needs no locked instruction.
    bool drop() noexcept { return isUnique() || references.fetch_sub(1, std::memory_order_acq_rel) == 1; }

    std::atomic<std::uint32_t> references { 1 };
    const Value::Kind kind;
    ContainerStorage* nextDead = nullptr;
};

struct ArrayStorage final : ContainerStorage {
    ArrayStorage() noexcept : ContainerStorage(Value::Kind::Array) { }
    explicit ArrayStorage(Value::Array content) noexcept
        : ContainerStorage(Value::Kind::Array),
          elements(std::move(content))
    {
    }
    Value::Array elements;
};

struct MapStorage final : ContainerStorage {
    MapStorage() noexcept : ContainerStorage(Value::Kind::Map) { }
    explicit MapStorage(ValueMap content) noexcept : ContainerStorage(Value::Kind::Map), entries(std::move(content)) { }
    ValueMap entries;
};

} // namespace fn::internal
