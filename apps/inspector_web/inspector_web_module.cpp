// Shows the inspectors in a web browser, in a process of its own.
#include "core/ipc/run_module.h"
#include "core/ipc_services/inspector/publish_inspector.h"
#include "core/services/logging_profile/logging_profiles.h"
#include "foundation/message_bus.h"
#include "inspector_web/announcement.h"
#include "inspector_web/http_server.h"
#include "inspector_web/inspector_pages.h"
#include <fmt/format.h>
#include <optional>
#include <unistd.h>

namespace inspector_web {

class InspectorWebModule final : public ipc::Module {
public:
    explicit InspectorWebModule(const ipc::ModuleInitData& data) : Module(data)
    {
        core::initLoggingProfiles("inspector_web");
    }

    void onConnected() override
    {
        publishTraffic();
        auto& bus = fn::MessageBus::instance();
        try {
            _server.emplace(worker().loop().uvLoop(), [this](const WebRequest& request) { return answer(request); });
            bus.postMessage(addressMessage, _server->access().address());
        } catch (const std::exception& exception) {
            bus.postMessage(failureMessage, exception.what());
        }
    }

    void onAboutToQuit() override
    {
        _server.reset();
        terminate();
    }

private:
    fn::Promise<WebAnswer> answer(WebRequest request)
    {
        ++_traffic->requests;
        auto answer = co_await _pages.answer(request);
        if (answer.status != 200) ++_traffic->refused;
        co_return answer;
    }

    /// Publishes the numbers of requests, but not the address: it gives access to everything.
    void publishTraffic()
    {
        core::publishInspector(worker(), "Web pages", [traffic = _traffic](const fn::Value&, auto& page) {
            page.append(fmt::format("Process: {}", ::getpid()))
                .append(fmt::format("Requests with the token: {}", traffic->requests))
                .append(fmt::format("Answered with an error: {}", traffic->refused));
        });
    }

    struct Traffic {
        std::uint64_t requests = 0;
        std::uint64_t refused = 0; // Requests answered by an error: unknown inspectors, bad links and the like.
    };
    const std::shared_ptr<Traffic> _traffic = std::make_shared<Traffic>();
    InspectorPages _pages { worker() };
    std::optional<HttpServer> _server; // Empty until the module is connected.
};

} // namespace inspector_web

IPC_MODULE_ENTRY_POINT(inspector_web::InspectorWebModule, "inspector_web")
