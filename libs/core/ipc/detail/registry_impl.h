#pragma once
#include "base/exceptions.h"
#include "core/ipc/dispatcher/hub_inspection.h"
#include "core/ipc/object/callable_object_instance.h"
#include <compare>
#include <map>
#include <set>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

namespace ipc {

/// The instance of the registry: the first object of the dispatcher's own worker, the only one of its class.
///
/// Methods: "getInstance" {"className", "timeout" in ms} gives the reference, or fails with
/// `fn::OperationTimedOutException`; "registerInstance" {"instance", "priority"}; "setInstancesHidden" boolean, for the
/// instances of the calling worker. Calls of other methods, or with arguments of another kind, get no answer.
/// The registrations and waiting look-ups of a worker are bounded (core/ipc/limits.h).
class RegistryImpl final : public CallableObjectInstance {
public:
    explicit RegistryImpl(Worker& worker);

    // For inspectors: at most `most` registrations or waiting look-ups behind the first `skip`.
    std::vector<HubInspection::Registration> registrations(std::size_t skip, std::size_t most) const;
    std::vector<HubInspection::Waiter> waiters(std::size_t skip, std::size_t most) const;
    std::size_t registrationCount() const { return _registrations.size(); }
    std::size_t waiterCount() const { return _waiters.size(); }

    /// Drops the look-ups of a worker that has died. Its registrations end with its objects.
    void forgetWorker(WorkerId workerId);

protected:
    ~RegistryImpl() override;
    fn::AutoPtr<ObjectReference> createReference(ObjectReferenceInitializer& initializer) override;
    void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument) override;

private:
    struct Registration {
        fn::AutoPtr<ObjectReference> reference;
        WorkerId registeredBy;
        bool hidden = false;
        /// The worker in whose share of `limits::registrations` this one counts. A registration of another worker's object
        /// outlives the worker that made it: all of those count in one share, that of NO_WORKER_ID.
        WorkerId chargedTo() const
        {
            return ownerOf(reference->objectId()) == registeredBy ? registeredBy : NO_WORKER_ID;
        }
    };
    /// Where a registration stands in its class: the highest priority first, of equal ones the latest.
    struct Place {
        std::int32_t priority;
        std::uint64_t sequence;
        /// The place before all others in a class.
        static constexpr Place first() { return { INT32_MAX, UINT64_MAX }; }
        bool operator==(const Place&) const = default;
        std::strong_ordering operator<=>(const Place& other) const
        {
            return std::tie(other.priority, other.sequence) <=> std::tie(priority, sequence);
        }
    };
    using RegistrationKey = std::pair<fn::String, Place>; // Class name and place.
    using Registrations = std::map<RegistrationKey, Registration>;

    /// Class name and sequence number of the look-up.
    using WaiterKey = std::pair<fn::String, std::uint64_t>;
    struct Waiter {
        CallContext context;
        fn::Handle timer;
    };

    /// The keys of the entries that concern each worker, in the order of their table. No set is empty.
    template <typename Key> using Index = std::unordered_map<WorkerId, std::set<Key>>;

    void getInstance(const CallContext& context, const fn::Value& argument);
    void registerInstance(const CallContext& context, const fn::Value& argument);
    void setInstancesHidden(const CallContext& context, bool hidden);
    fn::AutoPtr<ObjectReference> findVisible(const fn::String& className) const;
    void wait(const CallContext& context, const fn::String& className, std::int64_t milliseconds);
    void onWaitOver(const WaiterKey& key);
    void answerWaiters(const fn::String& className, const fn::AutoPtr<ObjectReference>& reference);
    void removeRegistration(const RegistrationKey& key);

    Registrations _registrations;
    std::map<WaiterKey, Waiter> _waiters;
    std::uint64_t _nextSequence = 0; // Numbers registrations and waiters.
    Index<RegistrationKey> _registrationsOf; // By the owner of the object.
    Index<WaiterKey> _waitersOf; // By the calling worker.
    std::unordered_map<WorkerId, std::size_t> _registrationCounts; // By `chargedTo()`.
};

} // namespace ipc
