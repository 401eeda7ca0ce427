#pragma once
#include <atomic>
#include <memory>
#include <thread>
#include <utility>

namespace fn {

/// An object that many threads read while others replace it. Readers take a reference without ever waiting; a writer waits for
/// readers that are taking one at that moment, not for what they do with the object. Thread-safe. (The atomic shared_ptr of this
/// compiler's standard library locks, in a way that ThreadSanitizer reports as a race.)
template <typename T> class Published {
public:
    /// Shows this one first.
    explicit Published(std::shared_ptr<const T> object) : _slot(new std::shared_ptr<const T>(std::move(object))) { }
    Published(const Published&) = delete;
    Published& operator=(const Published&) = delete;
    ~Published() { delete _slot.load(); }

    /// The object that is shown now; it lives as long as the result is held. Thread-safe, without waiting.
    std::shared_ptr<const T> read() const
    {
        // The order matters: a writer that finds no reader has exchanged the slot before the reader loads it.
        _readers.fetch_add(1, std::memory_order_seq_cst);
        auto object = *_slot.load(std::memory_order_seq_cst);
        _readers.fetch_sub(1, std::memory_order_release);
        return object;
    }

    /// Shows another one from now on; readers of the old one keep it. Thread-safe.
    void replace(std::shared_ptr<const T> object)
    {
        auto* next = new std::shared_ptr<const T>(std::move(object));
        const std::unique_ptr<std::shared_ptr<const T>> previous(_slot.exchange(next, std::memory_order_seq_cst));
        while (_readers.load(std::memory_order_seq_cst) != 0) std::this_thread::yield();
    }

private:
    std::atomic<std::shared_ptr<const T>*> _slot;
    mutable std::atomic<unsigned> _readers { 0 };
};

} // namespace fn
