#pragma once
#include "core/ipc_services/inspector/inspector.h"

namespace media {

/// Shows what a service says of itself: `Service::inspect()` gives its first page, `Service::inspect(action)` where it has more.
template <typename Service> class ServiceInspector final : public core::Inspector {
public:
    explicit ServiceInspector(const fn::AutoPtr<Service>& service) : _service(service) { }

    using Inspector::inspect;
    core::InspectionResult inspect(const fn::Value& action, const fn::Value&) override
    {
        const auto service = _service.lock();
        if (!service) return {};
        if constexpr (requires { service->inspect(action); })
            return service->inspect(action);
        else
            return service->inspect();
    }

private:
    const fn::WeakPtr<Service> _service;
};

} // namespace media
