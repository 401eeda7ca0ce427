#pragma once
#include "base/auto_ptr.h"
#include "foundation/logging/category.h"
#include "foundation/logging/sink.h"
#include <algorithm>
#include <cstddef>
#include <memory>

namespace fn::logging {

/// The categories and sinks of the process. Thread-safe.
class FN_EXPORT CategoryManager {
public:
    static CategoryManager& instance(); ///< The only one; made at the first call, never destroyed.

    /// The category of that name, made at the first call. Valid for the life of the process.
    const Category& getCategory(const String& name);

    /// Registers a sink for the messages that it wants (`Sink::threshold()`). Without any sink, priorities up to Warning go to
    /// standard error.
    void addSink(AutoPtr<Sink> sink);
    void removeSink(const AutoPtr<Sink>& sink); ///< It hears nothing that is logged from now on.
    void reload(); ///< Asks the sinks again what they want.

    struct Private;

private:
    CategoryManager();
    ~CategoryManager() = delete; // Lives until the process ends: messages may come from static destructors.
    const Category& findOrCreate(const String& name); // The caller holds the lock.
    void publishAll(); // The caller holds the lock.

    std::unique_ptr<Private> _private;
};

/// The name of a category as an argument of a template.
template <std::size_t Size> struct CategoryName {
    /// Copies the literal.
    consteval CategoryName(const char (&name)[Size]) { std::copy_n(name, Size, text); }
    char text[Size]; ///< The name, with a zero behind it.
};

/// The category of that name, looked up by the first call: `constexpr auto& category = logging::category<"core.promise">;`
template <CategoryName name> const Category& category()
{
    static const auto& result = CategoryManager::instance().getCategory(name.text);
    return result;
}

} // namespace fn::logging
