#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace fn::uv {

/// A first-in-first-out queue in one block of memory that is kept between uses: a steady flow allocates nothing.
/// T is default-constructible, moves without throwing, and a default T holds nothing.
template <typename T> class RingQueue {
public:
    RingQueue() = default;
    RingQueue(RingQueue&& other) noexcept { swap(other); }
    RingQueue& operator=(RingQueue&& other) noexcept
    {
        RingQueue(std::move(other)).swap(*this);
        return *this;
    }

    void swap(RingQueue& other) noexcept
    {
        std::swap(_slots, other._slots);
        std::swap(_capacity, other._capacity);
        std::swap(_head, other._head);
        std::swap(_tail, other._tail);
    }

    bool empty() const noexcept { return _head == _tail; }
    std::size_t size() const noexcept { return static_cast<std::size_t>(_tail - _head); }

    /// Number of elements ever popped and ever pushed: the element that `pop()` gives next has the number `head()`.
    std::uint64_t head() const noexcept { return _head; }
    std::uint64_t tail() const noexcept { return _tail; }

    T& front() noexcept { return slot(_head); }
    T& operator[](std::size_t index) noexcept { return slot(_head + index); } ///< Counted from the front.

    void push(T element)
    {
        if (size() == _capacity) grow();
        slot(_tail) = std::move(element);
        ++_tail;
    }

    T pop() noexcept
    {
        T element = std::exchange(slot(_head), T());
        ++_head;
        // A burst's memory is not held for ever.
        if (empty() && _capacity > KeptCapacity) {
            _slots.reset();
            _capacity = 0;
        }
        return element;
    }

private:
    static constexpr std::size_t FirstCapacity = 16;
    static constexpr std::size_t KeptCapacity = 4096;

    T& slot(std::uint64_t number) noexcept { return _slots[number & (_capacity - 1)]; }

    void grow()
    {
        const auto capacity = _capacity == 0 ? FirstCapacity : _capacity * 2;
        auto slots = std::make_unique<T[]>(capacity);
        for (auto number = _head; number != _tail; ++number) slots[number & (capacity - 1)] = std::move(slot(number));
        _slots = std::move(slots);
        _capacity = capacity;
    }

    std::unique_ptr<T[]> _slots;
    std::size_t _capacity = 0; // A power of two, or 0.
    std::uint64_t _head = 0;
    std::uint64_t _tail = 0;
};

} // namespace fn::uv
