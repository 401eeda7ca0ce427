#include "growth/subject.h"
#include <algorithm>
#include <unistd.h>

namespace bench::growth {
namespace {

std::size_t itemCount = 0;

} // namespace

std::function<void()> Item::onFewer;

Item::Item(ipc::Worker& worker) : CallableObjectInstance(worker) { ++itemCount; }

Item::~Item()
{
    --itemCount;
    if (onFewer) onFewer();
}

std::size_t Item::count() { return itemCount; }

fn::AutoPtr<ipc::ObjectReference> Item::createReference(ipc::ObjectReferenceInitializer& initializer)
{
    return fn::makeAuto<ItemReference>(initializer);
}

void Item::onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument)
{
    if (name != "echo") fail("an item has no such method");
    sendResult(context, echoOf(argument.byteArray()));
}

Subject::Subject(Session& session) : CallableObjectInstance(session.worker()), _session(session) { }
Subject::~Subject() = default;

void Subject::onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument)
{
    if (name == "echo") {
        sendResult(context, echoOf(argument.byteArray()));
    } else if (name == "items") {
        sendResult(context, items(argument.at("from").to<std::size_t>(), argument.at("to").to<std::size_t>()));
    } else if (name == "given") {
        sendResult(context, given(argument.to<std::size_t>()));
    } else if (name == "hold") {
        _held.push_back(argument);
        sendResult(context, {});
    } else if (name == "later") {
        _laterCalls.push_back({ context, argument.byteArray() });
    } else if (name == "answer") {
        answerOldest(argument.to<std::size_t>());
        sendResult(context, {});
    } else if (name == "probe") {
        probe(context, argument.toBool());
    } else if (name == "die") {
        ::_exit(0);
    } else {
        fail("a subject has no such method");
    }
}

fn::Value Subject::items(std::size_t from, std::size_t to)
{
    while (_items.size() < to) _items.push_back(fn::makeAuto<Item>(_session.worker()));
    fn::Value::Array found(
        _items.begin() + static_cast<std::ptrdiff_t>(from), _items.begin() + static_cast<std::ptrdiff_t>(to));
    return found;
}

fn::Value Subject::given(std::size_t count)
{
    fn::Value::Array made;
    while (made.size() < count) made.emplace_back(fn::makeAuto<Item>(_session.worker()));
    return made;
}

void Subject::answerOldest(std::size_t count)
{
    if (count > _laterCalls.size()) fail("fewer calls are waiting");
    for (; count > 0; --count) {
        sendResult(_laterCalls.front().context, echoOf(_laterCalls.front().argument));
        _laterCalls.pop_front();
    }
}

void Subject::probe(const CallContext& context, bool on)
{
    if (on) {
        _probe = std::make_unique<Load>(_probed, 1);
        _probe->start();
        sendResult(context, {});
        return;
    }
    _probe->stop([this, context] {
        auto& latencies = _probe->latencies();
        const auto median = percentile(latencies, 0.5);
        sendResult(context, fn::Value::map({ { "median", median }, { "worst", std::ranges::max(latencies) } }));
    });
}

} // namespace bench::growth
