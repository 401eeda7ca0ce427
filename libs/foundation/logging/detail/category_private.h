#pragma once
#include "foundation/logging/category_manager.h"
#include "foundation/system/published.h"
#include "foundation/uv/system.h"
#include <map>
#include <mutex>
#include <vector>

namespace fn::logging {

/// While there is no sink, messages up to this priority go to standard error.
inline constexpr int thresholdWithoutSinks = Warning;

/// The sinks of the process, and what each of them wants of this category. Each category has a list of its own, so that the cost of
/// a new category does not grow with the number of categories.
struct Category::Private {
    struct Listener {
        AutoPtr<Sink> sink;
        int threshold;
        const uv::System* system; // The sink gets only messages of this simulated process; null: all messages.
    };
    using Listeners = std::vector<Listener>;

    Published<Listeners> listeners { std::make_shared<Listeners>() };
};

struct CategoryManager::Private {
    std::mutex lock; // Held for every change.
    struct Registered {
        AutoPtr<Sink> sink;
        const uv::System* system; // The simulated process that added the sink, or null.
    };
    std::vector<Registered> sinks;
    std::map<String, std::unique_ptr<Category>> categories;
};

} // namespace fn::logging
