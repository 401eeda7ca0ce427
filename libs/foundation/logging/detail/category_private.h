#pragma once
#include "foundation/logging/category_manager.h"
#include "foundation/logging/detail/published.h"
#include <map>
#include <mutex>
#include <vector>

namespace fn::logging {

/// Without any sink messages up to this priority go to standard error.
inline constexpr int thresholdWithoutSinks = Warning;

/// The sinks of the process, and what each wants of this category. Each category has its own list, so that a new one costs as
/// much among thousands as among few.
struct Category::Private {
    struct Listener {
        AutoPtr<Sink> sink;
        int threshold;
    };
    using Listeners = std::vector<Listener>;

    Published<Listeners> listeners { std::make_shared<Listeners>() };
};

struct CategoryManager::Private {
    std::mutex lock; // Of every change.
    std::vector<AutoPtr<Sink>> sinks;
    std::map<String, std::unique_ptr<Category>> categories;
};

} // namespace fn::logging
