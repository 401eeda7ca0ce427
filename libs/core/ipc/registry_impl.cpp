#include "core/ipc/registry_impl.h"
#include "core/app_info.h"
#include "core/ipc/limits.h"
#include "core/ipc/registry.h"
#include "foundation/exceptions.h"
#include "foundation/logging/logging.h"
#include "foundation/weak_ptr.h"
#include <algorithm>

namespace ipc {

RegistryImpl::RegistryImpl(Worker& worker) : CallableObjectInstance(worker) { }
RegistryImpl::~RegistryImpl() = default;

fn::AutoPtr<ObjectReference> RegistryImpl::createReference(ObjectReferenceInitializer& initializer)
{
    return fn::makeAuto<Registry>(initializer);
}

void RegistryImpl::onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument)
{
    if (name == "getInstance")
        getInstance(context, argument);
    else if (name == "registerInstance")
        registerInstance(context, argument);
    else if (name == "setInstancesHidden")
        setInstancesHidden(context, argument.toBool());
}

// --- Looking up

void RegistryImpl::getInstance(const CallContext& context, const fn::Value& argument)
{
    const auto className = argument.get("className").asString();
    const auto timeout = argument.get("timeout").to<std::int64_t>();
    if (const auto found = findVisible(className))
        sendResult(context, found);
    else
        wait(context, className, timeout);
}

/// The first visible registration. One whose object is being destroyed ends the search: it is about to leave the table,
/// and the caller waits for its successor.
fn::AutoPtr<ObjectReference> RegistryImpl::findVisible(const fn::String& className) const
{
    const auto entry = _entries.find(className);
    if (entry == _entries.end()) return {};
    const auto visible = std::ranges::find_if(entry->second, [](const auto& place) { return !place.second.hidden; });
    if (visible == entry->second.end() || !visible->second.reference->tryRetain()) return {};
    return fn::AutoPtr<ObjectReference>::adopt(visible->second.reference.get());
}

void RegistryImpl::wait(const CallContext& context, const fn::String& className, std::int64_t milliseconds)
{
    if (className.size() > limits::classNameBytes) {
        sendError(context, fn::RuntimeException("The class name to look for is too long"));
        return;
    }
    auto& count = _waiterCounts[context.workerId];
    if (count >= limits::waiters) {
        sendError(context, fn::RuntimeException("Too many look-ups of one worker are waiting"));
        return;
    }
    ++count;
    const WaiterKey key(className, _nextSequence++);
    const auto delay = fn::Duration::milliseconds(std::max<std::int64_t>(milliseconds, 0));
    auto timer = loop().schedule(delay, [this, key] { onWaitOver(key); });
    _waiters.emplace(key, Waiter { context, std::move(timer) });
}

void RegistryImpl::onWaitOver(const WaiterKey& key)
{
    const auto ended = _waiters.extract(key);
    if (!ended) return;
    const auto& [context, timer] = ended.mapped();
    countDown(_waiterCounts, context.workerId);
    sendError(context,
        fn::OperationTimedOutException("Object of class " + ended.key().first + " is not available. Try restarting "
            + core::AppInfo::instance().applicationDisplayName()));
}

void RegistryImpl::answerWaiters(const fn::String& className, const fn::AutoPtr<ObjectReference>& reference)
{
    const auto begin = _waiters.lower_bound({ className, 0 });
    auto waiter = begin;
    for (; waiter != _waiters.end() && waiter->first.first == className; ++waiter) {
        auto& [context, timer] = waiter->second;
        timer.invalidate();
        countDown(_waiterCounts, context.workerId);
        sendResult(context, reference);
    }
    _waiters.erase(begin, waiter);
}

void RegistryImpl::forgetWorker(WorkerId workerId)
{
    if (!_waiterCounts.contains(workerId)) return;
    std::erase_if(_waiters, [&](const auto& entry) { return entry.second.context.workerId == workerId; });
    _waiterCounts.erase(workerId);
}

void RegistryImpl::countDown(std::map<WorkerId, std::size_t>& counts, WorkerId workerId)
{
    const auto count = counts.find(workerId);
    if (count != counts.end() && --count->second == 0) counts.erase(count);
}

// --- For inspectors

std::size_t RegistryImpl::registrationCount() const
{
    std::size_t sum = 0;
    for (const auto& [workerId, count] : _registrationCounts) sum += count;
    return sum;
}

std::vector<RegistryImpl::RegistrationInfo> RegistryImpl::registrations(std::size_t skip, std::size_t most) const
{
    std::vector<RegistrationInfo> found;
    for (const auto& [className, entry] : _entries) {
        for (const auto& [place, registration] : entry) {
            if (found.size() == most) return found;
            if (skip > 0)
                --skip;
            else
                found.push_back({ className, place.first, registration.reference->objectId(), registration.registeredBy,
                    registration.hidden });
        }
    }
    return found;
}

std::vector<RegistryImpl::WaiterInfo> RegistryImpl::waiters(std::size_t skip, std::size_t most) const
{
    std::vector<WaiterInfo> found;
    for (const auto& [key, waiter] : _waiters) {
        if (found.size() == most) return found;
        if (skip > 0)
            --skip;
        else
            found.push_back({ key.first, waiter.context.workerId });
    }
    return found;
}

// --- Registering

void RegistryImpl::registerInstance(const CallContext& context, const fn::Value& argument)
{
    const auto reference = argument.at("instance").object<ObjectReference>();
    const auto priority = argument.get("priority").to<std::int32_t>();
    if (!reference || reference->dead()) {
        sendResult(context, {});
        return;
    }
    const auto className = reference->className();
    if (className.size() > limits::classNameBytes) {
        sendError(context, fn::RuntimeException("The class name of the object to register is too long"));
        return;
    }
    auto& count = _registrationCounts[context.workerId];
    if (count >= limits::registrations) {
        sendError(context, fn::RuntimeException("Too many objects of one worker are registered"));
        return;
    }
    ++count;
    const Place place(priority, _nextSequence++);
    _entries[className].emplace(place, Registration { reference, context.workerId });
    answerWaiters(className, reference);
    // The connection lives as long as the reference, which may outlive the registry.
    reference->objectDeadSignal()
        .connect([self = fn::WeakPtr(this), className, place] {
            if (const auto registry = self.lock()) registry->removeRegistration(className, place);
        })
        .detach();
    sendResult(context, {});
}

void RegistryImpl::removeRegistration(const fn::String& className, const Place& place)
{
    const auto entry = _entries.find(className);
    if (entry == _entries.end()) return;
    const auto removed = entry->second.extract(place);
    if (!removed) return;
    countDown(_registrationCounts, removed.mapped().registeredBy);
    if (entry->second.empty()) _entries.erase(entry);
}

void RegistryImpl::setInstancesHidden(const CallContext& context, bool hidden)
{
    for (auto& [className, entry] : _entries) {
        for (auto& [place, registration] : entry) {
            if (ownerOf(registration.reference->objectId()) != context.workerId) continue;
            const bool isShownAgain = registration.hidden && !hidden;
            registration.hidden = hidden;
            if (isShownAgain) answerWaiters(className, registration.reference);
        }
    }
    sendResult(context, {});
}

} // namespace ipc
