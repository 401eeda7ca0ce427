#pragma once
#include "foundation/logging/category.h"
#include <memory>

namespace fn::logging {

class Sink;

/// The categories and sinks of the process. Thread-safe.
class FN_EXPORT CategoryManager {
public:
    static CategoryManager& instance();

    /// The category of that name, made at the first call. Valid for the life of the process.
    const Category& getCategory(const String& name);

    /// Registers a sink with what it wants (`Sink::threshold()`, asked again at `reload()`); it is shared with messages in
    /// flight on other threads. Without any sink, priorities up to Warning go to standard error.
    void addSink(std::shared_ptr<Sink> sink);
    void removeSink(const std::shared_ptr<Sink>& sink);
    void reload(); ///< Recomputes what each category's sinks want.

    struct Private;
    Private& internals() noexcept { return *_private; } ///< For the write path.

private:
    CategoryManager();
    ~CategoryManager() = delete; // Lives until the process ends: messages may come from static destructors.
    std::unique_ptr<Private> _private;
};

} // namespace fn::logging
