#pragma once
#include "core/ipc/worker/worker.h"
#include "core/ipc_services/inspector/inspector_registry.h"
#include <folly/Function.h>
#include <vector>

namespace media {

/// Walks the inspectors of the application on the terminal: shows a page with its links numbered, and waits for a number or
/// a command on standard input. Pages may come from any process, so their text is made printable.
class InspectorBrowser final : public fn::RefCountedObject {
public:
    /// Borrows the worker, which is connected, until `stop()`. `onQuit` is called when the user quits.
    InspectorBrowser(ipc::Worker& worker, folly::Function<void()> onQuit);

    void start();
    void stop(); ///< From now on nothing is shown or asked.

private:
    /// The way to a page.
    struct Place {
        fn::String key; // The inspector's key; empty for the list of all.
        std::string title;
        fn::Value action;
        fn::Value referer;
    };

    ~InspectorBrowser() override;
    void ask();
    void obey(const std::string& command);
    void visit(Place place);
    void show();
    fn::Promise<void> showList();
    fn::Promise<void> showPage();
    void print(const Place& place, const std::vector<core::Item>& items);

    ipc::Worker& _worker;
    folly::Function<void()> _onQuit;
    const bool _isTerminal;
    fn::AutoPtr<core::InspectorRegistry> _inspectors; // Set when the service is found.
    std::vector<Place> _trail; // The pages that led here; the last one is shown. Never empty once started.
    std::vector<Place> _links; // The links of the shown page, from number 1 on.
    fn::Promise<void> _work; // The page that is being fetched, or the command that is waited for.
};

} // namespace media
