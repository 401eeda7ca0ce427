#include "foundation/logging/category_manager.h"
#include "foundation/logging/detail/category_private.h"
#include "foundation/system/process_local.h"
#include <algorithm>

namespace fn::logging {
namespace {

using Listeners = Category::Private::Listeners;
using Sinks = std::vector<CategoryManager::Private::Registered>;

// The sinks that a simulated process has added; they are removed when it ends.
struct OwnSinks {
    ~OwnSinks()
    {
        for (const auto& sink : sinks) CategoryManager::instance().removeSink(sink);
    }
    std::vector<AutoPtr<Sink>> sinks;
};

// Asks every sink which messages of `category` it wants, and publishes the answers to the threads that log.
void publish(const Sinks& sinks, const Category& category)
{
    int highest = sinks.empty() ? thresholdWithoutSinks : 0;
    auto listeners = std::make_shared<Listeners>();
    listeners->reserve(sinks.size());
    for (const auto& [sink, system] : sinks) {
        listeners->push_back({ sink, sink->threshold(category), system });
        highest = std::max(highest, listeners->back().threshold);
    }
    category.internals().listeners.replace(std::move(listeners));
    category.setThreshold(highest);
}

} // namespace

CategoryManager::CategoryManager() : _private(std::make_unique<Private>()) { }

CategoryManager& CategoryManager::instance()
{
    static auto& manager = *new CategoryManager;
    return manager;
}

const Category& CategoryManager::getCategory(const String& name)
{
    const std::lock_guard guard(_private->lock);
    return findOrCreate(name);
}

const Category& CategoryManager::findOrCreate(const String& name)
{
    auto& categories = _private->categories;
    const auto found = categories.find(name);
    if (found != categories.end()) return *found->second;
    const auto dot = name.view().rfind('.');
    const auto* parent = dot == std::string_view::npos ? nullptr : &findOrCreate(name.view().substr(0, dot));
    auto created = std::make_unique<Category>(name, parent);
    publish(_private->sinks, *created);
    return *categories.emplace(name, std::move(created)).first->second;
}

void CategoryManager::publishAll()
{
    for (const auto& [name, category] : _private->categories) publish(_private->sinks, *category);
}

void CategoryManager::addSink(AutoPtr<Sink> sink)
{
    auto* const system = uv::System::current();
    if (system) {
        static ProcessLocal<OwnSinks> own;
        own.get().sinks.push_back(sink);
    }
    const std::lock_guard guard(_private->lock);
    _private->sinks.push_back({ std::move(sink), system });
    publishAll();
}

void CategoryManager::removeSink(const AutoPtr<Sink>& sink)
{
    const std::lock_guard guard(_private->lock);
    std::erase_if(_private->sinks, [&](const auto& registered) { return registered.sink == sink; });
    publishAll();
}

void CategoryManager::reload()
{
    const std::lock_guard guard(_private->lock);
    publishAll();
}

} // namespace fn::logging
