#pragma once
#include "core/services/data_util.h"
#include "foundation/coroutine/on_pool.h"

namespace core {

/// Has `work(*access)` run on a thread of the pool, within a `DatabaseAccess::ScopedConnection`, and gives what it returns or throws
/// on the loop that runs now; `sqlite::SQLiteException` if the file can not be opened. Works on one access exclude each other.
///
/// Cancelling gives the outcome up, not the work. The work shares the access, which may thus outlive its owner and be destroyed on
/// the pool's thread. Like the work of `fn::onPool()`, `work` owns what it uses.
template <typename Access, typename F>
auto onDatabase(std::shared_ptr<Access> access, F&& work, fn::ThreadPool& pool = fn::ThreadPool::defaultPool())
{
    static_assert(
        fn::internal::isFreedOnce<F>, "name the lambda first, and give it by that name: docs/coroutines.md, GCC 12");
    const auto run = [access = std::move(access), work = std::forward<F>(work)]() mutable {
        const DatabaseAccess::ScopedConnection connection(*access);
        return work(*access);
    };
    return fn::onPool(run, pool);
}

} // namespace core
