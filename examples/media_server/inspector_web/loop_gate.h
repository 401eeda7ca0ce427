#pragma once
#include "foundation/promise.h"
#include "foundation/run_loop.h"
#include "inspector_web/web_request.h"
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace media {

/// Takes the requests of the server's threads to the loop on which all objects live, and the answers back.
class LoopGate final : public std::enable_shared_from_this<LoopGate> {
public:
    using Answering = std::function<fn::Promise<WebAnswer>(const WebRequest&)>; ///< On the loop. Does not fail.

    /// For an answer. More than the loop's side takes to give up, so that it is that one which tells why.
    static constexpr auto mostWaiting = std::chrono::seconds(20);

    /// Belongs into a shared pointer. The loop outlives the gate.
    LoopGate(fn::RunLoop& loop, Answering answering);

    /// Waits for the answer, with a bound. Threads other than the loop's; any of them.
    WebAnswer ask(const WebRequest& request);

    /// Lets nobody through any more, and sends those who wait away. On the loop, which may join them then.
    void close();

private:
    using Slot = std::shared_ptr<std::optional<WebAnswer>>; // Guarded by the lock.
    void pass(const WebRequest& request, const Slot& slot);
    void fill(const Slot& slot, WebAnswer&& answer);

    fn::RunLoop& _loop;
    Answering _answering; // The loop's.
    std::mutex _lock;
    std::condition_variable _changed;
    bool _isClosed = false; // Guarded by the lock.
};

} // namespace media
