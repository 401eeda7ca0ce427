// Shows the inspectors in a web browser, in a process of its own.
#include "api/application.h"
#include "api/inspection.h"
#include "api/log_output.h"
#include "api/text.h"
#include "core/ipc/registry.h"
#include "core/ipc/run_module.h"
#include "core/ipc_services/inspector/inspection_result_writer.h"
#include "foundation/logging/logging.h"
#include "inspector_web/http_server.h"
#include "inspector_web/inspector_pages.h"
#include "inspector_web/loop_gate.h"
#include <fmt/format.h>
#include <unistd.h>

namespace media {
namespace {

constexpr auto findTimeout = fn::Duration::seconds(20);

const fn::logging::Category& category()
{
    static const auto& category = fn::logging::CategoryManager::instance().getCategory("mediaServer.inspectorWeb");
    return category;
}

struct Traffic {
    std::uint64_t requests = 0;
    std::uint64_t refused = 0; // Not with a page: unknown inspectors, bad links and the like.
};

/// Shows what this process itself is doing. Not where: whoever knows the address may look at everything.
class TrafficInspector final : public core::Inspector {
public:
    explicit TrafficInspector(std::shared_ptr<const Traffic> traffic) : _traffic(std::move(traffic)) { }

    using Inspector::inspect;
    core::InspectionResult inspect(const fn::Value&, const fn::Value&) override
    {
        core::InspectionResult result;
        core::InspectionResultWriter(result)
            .append(fmt::format("Process: {}", ::getpid()))
            .append(fmt::format("Requests with the token: {}", _traffic->requests))
            .append(fmt::format("Answered with an error: {}", _traffic->refused));
        return result;
    }

private:
    const std::shared_ptr<const Traffic> _traffic;
};

} // namespace

class InspectorWebModule final : public ipc::Module {
public:
    explicit InspectorWebModule(const ipc::ModuleInitData& data) : Module(data)
    {
        chooseFolders();
        startLogging("inspector_web");
    }

    ~InspectorWebModule() override { stop(); }

    void onConnected() override
    {
        const auto traffic = std::make_shared<Traffic>();
        publish(worker(), "Web pages", fn::makeAuto<TrafficInspector>(traffic));
        _gate = std::make_shared<LoopGate>(
            worker().loop(), [traffic, pages = fn::makeAuto<InspectorPages>(worker())](const WebRequest& request) {
                ++traffic->requests;
                return pages->answer(request).then([traffic](WebAnswer&& answer) {
                    if (answer.status != 200) ++traffic->refused;
                    return std::move(answer);
                });
            });
        try {
            _server =
                std::make_unique<HttpServer>([gate = _gate](const WebRequest& request) { return gate->ask(request); });
            announce("Inspect at " + _server->address());
        } catch (...) {
            announce("The inspectors cannot be shown: " + describe(std::current_exception()));
        }
    }

    void onAboutToQuit() override
    {
        stop();
        terminate();
    }

private:
    void announce(const fn::String& line)
    {
        worker()
            .registry()
            ->getInstance<Application>(findTimeout)
            .then([line](fn::AutoPtr<Application>&& application) { return application->announce(line); })
            .then([] {},
                [](std::exception_ptr failure) {
                    FN_LOG_TO(category(), logPriority(failure), {}, "examples/media_server/inspector_web",
                        "The address is not announced: {}", describe(failure));
                });
    }

    /// While the worker still lives: those who wait for the loop first, so that the server's threads end.
    void stop()
    {
        if (_gate) _gate->close();
        _server.reset();
    }

    std::shared_ptr<LoopGate> _gate; // Empty until connected, as is the next one.
    std::unique_ptr<HttpServer> _server;
};

} // namespace media

IPC_MODULE_ENTRY_POINT(media::InspectorWebModule, "inspector_web")
