#pragma once
#include "core/ipc/wire/message.h"
#include <vector>

namespace ipc {

/// Worker ids in one bit each: whoever lives long hears of many that are dead.
class WorkerIdSet {
public:
    bool contains(WorkerId id) const { return id < _members.size() && _members[id]; }

    void insert(WorkerId id)
    {
        if (id >= _members.size()) _members.resize(id + std::size_t(1));
        _members[id] = true;
    }

    /// Whether it was there.
    bool erase(WorkerId id)
    {
        const bool wasThere = contains(id);
        if (wasThere) _members[id] = false;
        return wasThere;
    }

private:
    std::vector<bool> _members; // Up to the greatest id that was ever in.
};

} // namespace ipc
