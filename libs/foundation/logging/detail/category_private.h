#pragma once
#include "foundation/logging/category_manager.h"
#include "foundation/system/published.h"
#include "foundation/uv/system.h"
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
        const uv::System* system; // Only what this simulated process logs; null: whatever is logged.
    };
    using Listeners = std::vector<Listener>;

    Published<Listeners> listeners { std::make_shared<Listeners>() };
};

struct CategoryManager::Private {
    std::mutex lock; // Of every change.
    struct Registered {
        AutoPtr<Sink> sink;
        const uv::System* system; // Of the simulated process that has added it.
    };
    std::vector<Registered> sinks;
    std::map<String, std::unique_ptr<Category>> categories;
};

} // namespace fn::logging
