#pragma once
#include "base/string.h"
#include <atomic>
#include <memory>

namespace fn::logging {

/// Priorities, lower being more severe.
enum Priority : int { Error = 1, Warning = 2, Fixme = 3, Info = 4, Debug = 5, Log = 6, Trace = 7 };

/// A named source of messages. The CategoryManager makes categories, which live as long as the process. Thread-safe.
class FN_EXPORT Category {
public:
    /// Made by the CategoryManager; `parent` has the name up to the last dot.
    explicit Category(String name, const Category* parent = nullptr);
    Category(const Category&) = delete;
    Category& operator=(const Category&) = delete;
    ~Category();

    const String& name() const noexcept { return _name; } ///< With those of its parents, "ipc.dispatcher".

    /// The category "ipc" for "ipc.dispatcher"; null for a name without '.'.
    const Category* parent() const noexcept { return _parent; }

    /// Whether some sink wants messages of this priority.
    bool wants(int priority) const noexcept { return priority <= _threshold.load(std::memory_order_relaxed); }

    /// For the manager: the highest number that any sink wants.
    void setThreshold(int priority) const noexcept { _threshold.store(priority, std::memory_order_relaxed); }

    struct Private;
    Private& internals() const noexcept { return *_private; } ///< For the manager and the write path.

private:
    const String _name;
    const Category* const _parent;
    mutable std::atomic<int> _threshold { 0 };
    const std::unique_ptr<Private> _private;
};

} // namespace fn::logging
