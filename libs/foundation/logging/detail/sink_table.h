#pragma once
#include "foundation/logging/category_manager.h"
#include "foundation/logging/detail/published.h"
#include <map>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace fn::logging {

/// The sinks and what each wants. Immutable: changes make a new one.
struct SinkTable {
    struct Entry {
        AutoPtr<Sink> sink;
        std::unordered_map<const Category*, int> thresholds;
    };
    std::vector<Entry> entries;
};

struct CategoryManager::Private {
    Published<SinkTable> sinks { std::make_shared<SinkTable>() };

    std::mutex lock; // Of every change.
    std::map<String, std::unique_ptr<Category>> categories;
};

} // namespace fn::logging
