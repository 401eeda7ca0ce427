#pragma once
#include "core/ipc/wire/message.h"
#include <vector>

namespace ipc {

/// A set of worker ids, of one bit each: a worker that lives long hears of many deaths.
class WorkerIdSet {
public:
    bool contains(WorkerId id) const { return id < _members.size() && _members[id]; }

    void insert(WorkerId id)
    {
        if (id >= _members.size()) _members.resize(id + std::size_t(1));
        _members[id] = true;
    }

    /// Gives whether the set contained the id.
    bool erase(WorkerId id)
    {
        const bool wasThere = contains(id);
        if (wasThere) _members[id] = false;
        return wasThere;
    }

private:
    std::vector<bool> _members; // By id, up to the greatest one that was ever inserted.
};

} // namespace ipc
