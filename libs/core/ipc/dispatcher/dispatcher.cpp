#include "core/ipc/dispatcher/dispatcher.h"
#include "core/ipc/dispatcher/detail/hub.h"

namespace ipc {

Dispatcher::Dispatcher(fn::uv::Loop& loop, const fn::Duration& timeout, const HubLimits& limits)
    : _hub(std::make_unique<Hub>(loop, timeout, limits))
{
}

Dispatcher::~Dispatcher() = default;

void Dispatcher::bind() { _hub->bind(); }
void Dispatcher::start() { _hub->start(); }
void Dispatcher::stop(const fn::Duration& delay, folly::Function<void()> callback)
{
    _hub->stop(delay, std::move(callback));
}

fn::Promise<void> Dispatcher::end(const fn::Duration& graceTime) { return _hub->end(graceTime); }

fn::String Dispatcher::pipePath() const { return _hub->pipePath(); }
const fn::AutoPtr<fn::uv::PipeStream>& Dispatcher::pipeStream() const { return _hub->pipeStream(); }
fn::uv::Loop& Dispatcher::loop() const { return _hub->loop(); }
Worker& Dispatcher::worker() { return _hub->worker(); }
const fn::Lifetime& Dispatcher::lifetime() const { return _hub->lifetime(); }
std::vector<Dispatcher::WorkerStatistics> Dispatcher::workers() const { return _hub->workers(); }

fn::Signal<>& Dispatcher::onReady() { return _hub->onReady; }
fn::Signal<const Dispatcher::WorkerInfo&>& Dispatcher::onWorkerConnected() { return _hub->onWorkerConnected; }
fn::Signal<const Dispatcher::WorkerInfo&>& Dispatcher::onWorkerNotResponding() { return _hub->onWorkerNotResponding; }
fn::Signal<const Dispatcher::WorkerInfo&>& Dispatcher::onWorkerDisconnected() { return _hub->onWorkerDisconnected; }

fn::String Dispatcher::WorkerInfo::toString() const
{
    return displayName + " (" + (tag.empty() ? tag : tag + ", ") + fn::String::number(static_cast<unsigned>(workerId))
        + ")";
}

} // namespace ipc
