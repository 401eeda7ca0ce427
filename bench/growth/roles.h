#pragma once
#include "driver/driver.h"
#include "growth/subject.h"

namespace bench::growth {

/// Numbers with commas in between: the sizes at which a role measures, in turn. It reports one line for each.
std::vector<std::size_t> sizes(const Options& options);

/// Adds references to the items from number `from` to `to` of an owner.
void takeItems(Session& session, ipc::CallableObjectReference& owner, std::size_t from, std::size_t to,
    std::vector<fn::AutoPtr<ItemReference>>& items);

// Who serves.
void playSubject(const Options& options, fn::uv::Loop& loop); ///< `part` is its name.
void playCrowd(const Options& options, fn::uv::Loop& loop); ///< `workers` connections that do nothing.

// Who measures and reports; growth_scenarios.py says what each report means. They stay afterwards, to be looked at.
void playCalls(const Options& options, fn::uv::Loop& loop);
void playObjects(const Options& options, fn::uv::Loop& loop);
void playRegistry(const Options& options, fn::uv::Loop& loop);
void playPending(const Options& options, fn::uv::Loop& loop);
void playDeath(const Options& options, fn::uv::Loop& loop);
void playBulk(const Options& options, fn::uv::Loop& loop);
void playSoak(const Options& options, fn::uv::Loop& loop); ///< Never ends; a report for each piece of about `seconds`.

} // namespace bench::growth
