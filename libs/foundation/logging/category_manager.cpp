#include "foundation/logging/category_manager.h"
#include "foundation/logging/detail/sink_table.h"
#include <algorithm>

namespace fn::logging {
namespace {

constexpr int thresholdWithoutSinks = Warning;

// Asks the sinks of `table` about `category`.
void addCategory(SinkTable& table, const Category& category)
{
    for (auto& entry : table.entries) entry.thresholds[&category] = entry.sink->threshold(category);
}

void applyThreshold(const SinkTable& table, const Category& category)
{
    int highest = table.entries.empty() ? thresholdWithoutSinks : 0;
    for (const auto& entry : table.entries) highest = std::max(highest, entry.thresholds.at(&category));
    category.setThreshold(highest);
}

// Asks every sink about every category, and makes the answers count. With the lock held.
void publish(CategoryManager::Private& manager, std::shared_ptr<SinkTable> table)
{
    for (const auto& [name, category] : manager.categories) addCategory(*table, *category);
    manager.sinks.replace(table);
    for (const auto& [name, category] : manager.categories) applyThreshold(*table, *category);
}

const Category& findOrCreate(CategoryManager::Private& manager, const String& name)
{
    const auto found = manager.categories.find(name);
    if (found != manager.categories.end()) return *found->second;
    const auto dot = name.view().rfind('.');
    const auto* parent = dot == std::string_view::npos ? nullptr : &findOrCreate(manager, name.view().substr(0, dot));
    auto created = std::make_unique<Category>(name, parent);
    const auto table = std::make_shared<SinkTable>(*manager.sinks.read());
    addCategory(*table, *created);
    manager.sinks.replace(table);
    applyThreshold(*table, *created);
    return *manager.categories.emplace(name, std::move(created)).first->second;
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
    return findOrCreate(*_private, name);
}

void CategoryManager::addSink(AutoPtr<Sink> sink)
{
    const std::lock_guard guard(_private->lock);
    auto table = std::make_shared<SinkTable>(*_private->sinks.read());
    table->entries.push_back({ std::move(sink), {} });
    publish(*_private, std::move(table));
}

void CategoryManager::removeSink(const AutoPtr<Sink>& sink)
{
    const std::lock_guard guard(_private->lock);
    auto table = std::make_shared<SinkTable>(*_private->sinks.read());
    std::erase_if(table->entries, [&](const SinkTable::Entry& entry) { return entry.sink == sink; });
    publish(*_private, std::move(table));
}

void CategoryManager::reload()
{
    const std::lock_guard guard(_private->lock);
    publish(*_private, std::make_shared<SinkTable>(*_private->sinks.read()));
}

} // namespace fn::logging
