#include "foundation/value_map.h"
#include <algorithm>

namespace fn {
namespace {

// Most entries of one run. An insertion moves no more than one run (3 KiB), and a map of a million entries has a few ten thousand.
constexpr std::size_t runCapacity = 64;
constexpr std::size_t firstCapacity = 4;
constexpr std::size_t mostLookedThrough = 8;

} // namespace

ValueMap::ValueMap() noexcept = default;
ValueMap::ValueMap(const ValueMap& other) = default;
ValueMap::~ValueMap() = default;

ValueMap::ValueMap(ValueMap&& other) noexcept
    : _only(std::move(other._only)),
      _runs(std::move(other._runs)),
      _size(std::exchange(other._size, 0))
{
}

ValueMap& ValueMap::operator=(ValueMap other) noexcept
{
    std::swap(_only, other._only);
    std::swap(_runs, other._runs);
    std::swap(_size, other._size);
    return *this;
}

ValueMap::Position ValueMap::locate(const Value& key) const noexcept
{
    auto* run = const_cast<Run*>(firstRun());
    if (_size == 0) return { run, 0, false };
    // Finds the last run that begins at or before the key, or the first run if the key is before all.
    std::size_t rest = runCount();
    while (rest > 1) {
        const auto half = rest / 2;
        if (Value::compare(run[half].front().key, key) <= 0) {
            run += half;
            rest -= half;
        } else {
            rest = half;
        }
    }
    std::size_t first = 0, end = run->size();
    while (first < end) {
        const auto middle = (first + end) / 2;
        const int order = Value::compare((*run)[middle].key, key);
        if (order == 0) return { run, middle, true };
        if (order < 0)
            first = middle + 1;
        else
            end = middle;
    }
    return { run, first, false };
}

const Value* ValueMap::find(const Value& key) const noexcept
{
    // In a small map, comparing a text with each key for equality is faster than a search by order.
    if (_runs.empty() && _only.size() <= mostLookedThrough && key.isString()) {
        for (const auto& entry : _only) {
            if (Value::areSameText(entry.key, key)) return &entry.value;
        }
        return nullptr;
    }
    const auto position = locate(key);
    return position.found ? &(*position.run)[position.index].value : nullptr;
}

Value* ValueMap::find(const Value& key) noexcept { return const_cast<Value*>(std::as_const(*this).find(key)); }

Value& ValueMap::operator[](const Value& key)
{
    const auto position = locate(key);
    return position.found ? (*position.run)[position.index].value : add(position, Value(key), Value()).value;
}

void ValueMap::set(Value key, Value value)
{
    auto& last = _runs.empty() ? _only : _runs.back();
    if (last.empty() || Value::compare(last.back().key, key) < 0) {
        if (last.capacity() == 0 || last.size() == runCapacity)
            return static_cast<void>(addLast(std::move(key), std::move(value)));
        ++_size;
        last.emplace_back(std::move(key), std::move(value));
        return;
    }
    const auto position = locate(key);
    if (position.found)
        (*position.run)[position.index].value = std::move(value);
    else
        add(position, std::move(key), std::move(value));
}

ValueMap::Entry& ValueMap::addLast(Value&& key, Value&& value)
{
    auto* run = _runs.empty() ? &_only : &_runs.back();
    if (run->size() == runCapacity) {
        if (_runs.empty()) _runs.push_back(std::exchange(_only, {}));
        run = &_runs.emplace_back();
        run->reserve(runCapacity);
    } else if (run->capacity() == 0) {
        run->reserve(firstCapacity);
    }
    ++_size;
    return run->emplace_back(std::move(key), std::move(value));
}

ValueMap::Entry& ValueMap::add(Position position, Value&& key, Value&& value)
{
    auto [run, index, found] = position;
    if (run->size() == runCapacity) {
        run = splitRun(run);
        if (index > run->size()) index -= (run++)->size();
    }
    ++_size;
    return *run->emplace(run->begin() + static_cast<std::ptrdiff_t>(index), std::move(key), std::move(value));
}

// Moves the upper half of `run` into a new run behind it. Returns the lower half, which may lie elsewhere now.
ValueMap::Run* ValueMap::splitRun(Run* run)
{
    if (_runs.empty()) {
        _runs.push_back(std::exchange(_only, {}));
        run = _runs.data();
    }
    const auto position = run - _runs.data();
    const auto middle = run->begin() + runCapacity / 2;
    Run upper;
    upper.reserve(runCapacity);
    upper.assign(std::move_iterator(middle), std::move_iterator(run->end()));
    run->erase(middle, run->end());
    _runs.insert(_runs.begin() + position + 1, std::move(upper));
    return &_runs[static_cast<std::size_t>(position)];
}

bool ValueMap::remove(const Value& key)
{
    const auto [run, index, found] = locate(key);
    if (!found) return false;
    run->erase(run->begin() + static_cast<std::ptrdiff_t>(index));
    --_size;
    if (_runs.empty()) return true;
    const auto position = _runs.begin() + (run - _runs.data());
    if (run->empty()) {
        _runs.erase(position);
    } else if (const auto next = position + 1; next != _runs.end() && run->size() + next->size() <= runCapacity / 2) {
        // Joined, since runs of a few entries each would make the list of runs as long as the map.
        run->insert(run->end(), std::move_iterator(next->begin()), std::move_iterator(next->end()));
        _runs.erase(next);
    }
    return true;
}

void ValueMap::clear() noexcept
{
    _only.clear();
    _runs.clear();
    _size = 0;
}

void ValueMap::reserve(std::size_t entries)
{
    if (_runs.empty()) _only.reserve(std::min(entries, runCapacity));
}

} // namespace fn
