#include "core/ipc/detail/registry_impl.h"
#include "base/exceptions.h"
#include "base/weak_ptr.h"
#include "core/ipc/limits.h"
#include "core/ipc/registry.h"
#include "core/services/app_info.h"
#include "foundation/logging/logging.h"
#include "foundation/unhandled_exception.h"
#include <algorithm>
#include <ranges>

namespace ipc {
namespace {

/// Erases `key` from the worker's set, and the set with its last key.
template <typename Index, typename Key> void takeOut(Index& index, WorkerId workerId, const Key& key)
{
    const auto found = index.find(workerId);
    if (found == index.end()) return;
    found->second.erase(key);
    if (found->second.empty()) index.erase(found);
}

/// `most` entries of a table behind its first `skip`.
template <typename Table> auto pageOf(const Table& table, std::size_t skip, std::size_t most)
{
    return table | std::views::drop(std::min(skip, table.size())) | std::views::take(most);
}

} // namespace

RegistryImpl::RegistryImpl(Worker& worker) : CallableObjectInstance(worker) { }
RegistryImpl::~RegistryImpl() = default;

fn::AutoPtr<ObjectReference> RegistryImpl::createReference(ObjectReferenceInitializer& initializer)
{
    return fn::makeAuto<Registry>(initializer);
}

void RegistryImpl::onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument)
{
    try {
        if (name == "getInstance")
            getInstance(context, argument);
        else if (name == "registerInstance")
            registerInstance(context, argument);
        else if (name == "setInstancesHidden")
            setInstancesHidden(context, argument.toBool());
    } catch (...) {
        fn::unhandledException(); // A call whose arguments make no sense gets no answer.
    }
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

/// The first visible registration. If its object is being destroyed, none: the registration is about to leave the table, and
/// the caller waits for its successor.
fn::AutoPtr<ObjectReference> RegistryImpl::findVisible(const fn::String& className) const
{
    for (auto found = _registrations.lower_bound({ className, Place::first() });
         found != _registrations.end() && found->first.first == className; ++found) {
        const auto& [reference, registeredBy, hidden] = found->second;
        if (hidden) continue;
        return reference->tryRetain() ? fn::AutoPtr<ObjectReference>::adopt(reference.get())
                                      : fn::AutoPtr<ObjectReference>();
    }
    return {};
}

void RegistryImpl::wait(const CallContext& context, const fn::String& className, std::int64_t milliseconds)
{
    if (className.size() > limits::nameBytes) {
        sendError(context, fn::RuntimeException("The class name to look for is too long"));
        return;
    }
    auto& ofCaller = _waitersOf[context.workerId];
    if (ofCaller.size() >= limits::waiters) {
        sendError(context, fn::RuntimeException("Too many look-ups of one worker are waiting"));
        return;
    }
    const WaiterKey key(className, _nextSequence++);
    ofCaller.insert(key);
    const auto delay = fn::Duration::milliseconds(std::max<std::int64_t>(milliseconds, 0));
    auto timer = loop().schedule(delay, [this, key] { onWaitOver(key); });
    _waiters.emplace(key, Waiter { context, std::move(timer) });
}

void RegistryImpl::onWaitOver(const WaiterKey& key)
{
    const auto ended = _waiters.extract(key);
    if (!ended) return;
    const auto& [context, timer] = ended.mapped();
    takeOut(_waitersOf, context.workerId, ended.key());
    auto message = "Object of class " + ended.key().first + " is not available";
    if (const auto* application = core::AppInfo::find())
        message += ". Try restarting " + application->applicationDisplayName();
    sendError(context, fn::OperationTimedOutException(message));
}

void RegistryImpl::answerWaiters(const fn::String& className, const fn::AutoPtr<ObjectReference>& reference)
{
    const auto begin = _waiters.lower_bound({ className, 0 });
    auto waiter = begin;
    for (; waiter != _waiters.end() && waiter->first.first == className; ++waiter) {
        auto& [context, timer] = waiter->second;
        timer.invalidate();
        takeOut(_waitersOf, context.workerId, waiter->first);
        sendResult(context, reference);
    }
    _waiters.erase(begin, waiter);
}

void RegistryImpl::forgetWorker(WorkerId workerId)
{
    const auto forgotten = _waitersOf.extract(workerId);
    if (!forgotten) return;
    for (const auto& key : forgotten.mapped()) _waiters.erase(key);
}

// --- For inspectors

std::vector<HubInspection::Registration> RegistryImpl::registrations(std::size_t skip, std::size_t most) const
{
    std::vector<HubInspection::Registration> found;
    for (const auto& [key, registration] : pageOf(_registrations, skip, most)) {
        found.push_back({ key.first, key.second.priority, registration.reference->objectId(), registration.registeredBy,
            registration.hidden });
    }
    return found;
}

std::vector<HubInspection::Waiter> RegistryImpl::waiters(std::size_t skip, std::size_t most) const
{
    std::vector<HubInspection::Waiter> found;
    for (const auto& [key, waiter] : pageOf(_waiters, skip, most))
        found.push_back({ key.first, waiter.context.workerId });
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
    if (className.size() > limits::nameBytes) {
        sendError(context, fn::RuntimeException("The class name of the object to register is too long"));
        return;
    }
    Registration registration { reference, context.workerId };
    auto& count = _registrationCounts[registration.chargedTo()];
    if (count >= limits::registrations) {
        sendError(context, fn::RuntimeException("Too many objects of one worker, or for others, are registered"));
        return;
    }
    ++count;
    const RegistrationKey key(className, Place { priority, _nextSequence++ });
    _registrations.emplace(key, std::move(registration));
    _registrationsOf[ownerOf(reference->objectId())].insert(key);
    answerWaiters(className, reference);
    // The connection of the signal lives as long as the reference, which may outlive the registry.
    reference->objectDeadSignal().connect(fn::WeakPtr(this).guard([this, key] { removeRegistration(key); })).detach();
    sendResult(context, {});
}

void RegistryImpl::removeRegistration(const RegistrationKey& key)
{
    const auto removed = _registrations.extract(key);
    if (!removed) return;
    const auto& registration = removed.mapped();
    takeOut(_registrationsOf, ownerOf(registration.reference->objectId()), key);
    const auto count = _registrationCounts.find(registration.chargedTo());
    if (--count->second == 0) _registrationCounts.erase(count);
}

void RegistryImpl::setInstancesHidden(const CallContext& context, bool hidden)
{
    if (const auto own = _registrationsOf.find(context.workerId); own != _registrationsOf.end()) {
        for (const auto& key : own->second) {
            auto& registration = _registrations.at(key);
            const bool isShownAgain = registration.hidden && !hidden;
            registration.hidden = hidden;
            if (isShownAgain) answerWaiters(key.first, registration.reference);
        }
    }
    sendResult(context, {});
}

} // namespace ipc
