#pragma once
#include "core/ipc/worker/worker.h"
#include "core/ipc_services/inspector/inspector_registry.h"
#include <folly/Function.h>
#include <vector>

namespace media {

/// Walks the inspectors of the application on the terminal: shows a page with its links numbered, and waits for a number or
/// a command on standard input. Pages come from anywhere, so they are shown printable.
class InspectorBrowser final : public fn::RefCountedObject {
public:
    /// The worker is connected, and borrowed until `stop()`. `onQuit` is called when the user has had enough.
    InspectorBrowser(ipc::Worker& worker, folly::Function<void()> onQuit);

    void start();
    void stop(); ///< Nothing is shown or asked any more.

private:
    /// A page, as the way to it.
    struct Place {
        fn::String key; // Of the inspector; empty: the list of all.
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
    fn::AutoPtr<core::InspectorRegistry> _inspectors; // Once found.
    std::vector<Place> _trail; // The page that is shown last; never empty once started.
    std::vector<Place> _links; // Of that page, from number 1 on.
    fn::Promise<void> _work; // The page that is being fetched, or the command that is waited for.
};

} // namespace media
