#pragma once
#include "base/auto_ptr.h"
#include "base/export.h"
#include <vector>

namespace fn::internal {

class Coroutine;
class PromiseNodeBase;

/// Who is told when all that a cancellation has reached is gone.
class CancellationEnd {
public:
    virtual void cancellationEnded() = 0;

protected:
    ~CancellationEnd() = default;
};

/// What is left to do of a cancellation. Those that hold it are still on the stack; the last one to let it go does it.
class FN_EXPORT RestOfCancellation final : public RefCountedBase {
public:
    /// Its rest comes after this one.
    void addWaiting(AutoPtr<RestOfCancellation> other) { _waiting.push_back(std::move(other)); }

private:
    friend class Cancellation;
    ~RestOfCancellation() override;

    Coroutine* _innermost = nullptr;
    CancellationEnd* _whoWaits = nullptr;
    AutoPtr<PromiseNodeBase> _first; // Whose handler is still to hear of it.
    std::vector<AutoPtr<RestOfCancellation>> _waiting;
};

/// One `cancel()`, whatever it reaches. The frames of the coroutines among that are destroyed after it, the innermost first, since a
/// coroutine may refer to what lies in the frame of who awaits it. A coroutine on the stack can not be destroyed: where one was
/// reached, all that waits until it has come to its next await.
class FN_EXPORT Cancellation {
public:
    Cancellation() noexcept = default;
    Cancellation(const Cancellation&) = delete;
    Cancellation& operator=(const Cancellation&) = delete;

    void add(Coroutine& suspended) noexcept; ///< Its frame is to be destroyed. Those that it awaits are added after it.
    AutoPtr<RestOfCancellation> rest(); ///< For who is still on the stack.

    /// Has the frames destroyed and then `whoWaits` told, now or by who is still on the stack.
    void end(CancellationEnd& whoWaits);
    void endFrom(PromiseNodeBase& first); ///< The same; told is the handler of the node with which it began.

private:
    friend RestOfCancellation;
    static void destroyFrames(Coroutine* innermost);

    Coroutine* _innermost = nullptr;
    AutoPtr<RestOfCancellation> _rest; // Made where somebody runs.
};

} // namespace fn::internal
