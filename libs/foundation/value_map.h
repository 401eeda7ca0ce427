#pragma once
#include "foundation/value.h"
#include <cstddef>
#include <iterator>
#include <vector>

namespace fn {

/// The entries of a map value, in ascending key order (Value's total order). Small maps are one sorted run of entries;
/// large ones are cut into runs of bounded length, so that neither look-up nor insertion costs more than a logarithm and
/// the move of one run. Changing a map invalidates its iterators.
class FN_EXPORT ValueMap {
public:
    struct Entry {
        Value key; ///< Not to be changed in place.
        Value value;
    };
    using Run = std::vector<Entry>; ///< A part of the entries, ascending.

    class const_iterator {
    public:
        using value_type = Entry;
        using difference_type = std::ptrdiff_t;
        using reference = const Entry&;
        using pointer = const Entry*;
        using iterator_category = std::forward_iterator_tag;

        const_iterator() noexcept = default;
        const_iterator(const Run* run, std::size_t index) noexcept : _run(run), _index(index) { }
        reference operator*() const noexcept { return (*_run)[_index]; }
        pointer operator->() const noexcept { return &(*_run)[_index]; }
        const_iterator& operator++() noexcept
        {
            if (++_index == _run->size()) {
                ++_run;
                _index = 0;
            }
            return *this;
        }
        const_iterator operator++(int) noexcept
        {
            const auto before = *this;
            ++*this;
            return before;
        }
        friend bool operator==(const const_iterator&, const const_iterator&) noexcept = default;

    private:
        const Run* _run = nullptr;
        std::size_t _index = 0;
    };

    ValueMap() noexcept;
    ValueMap(const ValueMap& other);
    ValueMap(ValueMap&& other) noexcept;
    ValueMap& operator=(ValueMap other) noexcept;
    ~ValueMap();

    std::size_t size() const noexcept { return _size; } ///< How many entries.
    bool empty() const noexcept { return _size == 0; } ///< Whether there is no entry.
    const_iterator begin() const noexcept { return { firstRun(), 0 }; } ///< The entry with the lowest key.
    const_iterator end() const noexcept { return { firstRun() + runCount(), 0 }; } ///< Behind the last one.

    const Value* find(const Value& key) const noexcept; ///< Null if missing.
    Value* find(const Value& key) noexcept; ///< To be changed in place; null if missing.
    Value& operator[](const Value& key); ///< The entry; a missing one is added as nil.
    void set(Value key, Value value); ///< Adds or replaces. Appending in key order is the cheapest.
    bool remove(const Value& key); ///< Returns whether there was an entry.
    void clear() noexcept; ///< Removes all entries.
    void reserve(std::size_t entries); ///< A hint before the first entry.

private:
    friend class Value;
    struct Position {
        Run* run;
        std::size_t index; // The place of the entry, or the place where it belongs.
        bool found;
    };
    const Run* firstRun() const noexcept { return _runs.empty() ? &_only : _runs.data(); }
    Run* firstRun() noexcept { return _runs.empty() ? &_only : _runs.data(); }
    std::size_t runCount() const noexcept { return _runs.empty() ? !_only.empty() : _runs.size(); }
    Position locate(const Value& key) const noexcept;
    Entry& add(Position position, Value&& key, Value&& value);
    Entry& addLast(Value&& key, Value&& value);
    Run* splitRun(Run* run);

    // Keys ascend within and across runs. A map that never outgrew one run has it in `_only`; any other has its runs in
    // `_runs`, none of them empty, and `_only` is empty.
    Run _only;
    std::vector<Run> _runs;
    std::size_t _size = 0;
};

} // namespace fn
