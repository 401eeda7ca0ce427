#pragma once
#include "core/ipc/worker/worker.h"
#include "core/ipc_services/inspector/inspector_registry.h"
#include <vector>

namespace media {

/// Walks the inspectors of the application on the terminal: shows a page with its links numbered, and waits for a number or
/// a command on standard input. Pages may come from any process, so their text is made printable.
class InspectorBrowser {
public:
    explicit InspectorBrowser(ipc::Worker& worker); ///< Borrows the worker, which is connected.

    fn::Promise<void> run(); ///< Ends when the user quits.

private:
    /// The way to a page.
    struct Place {
        fn::String key; // The inspector's key; empty for the list of all.
        std::string title;
        fn::Value action;
        fn::Value referer;
    };

    fn::Promise<bool> ask();
    bool follow(const std::string& command);
    fn::Promise<void> showList();
    fn::Promise<void> showPage();
    void print(const Place& place, const std::vector<core::Item>& items);

    ipc::Worker& _worker;
    const bool _isTerminal;
    fn::AutoPtr<core::InspectorRegistry> _inspectors; // Set when the service is found.
    std::vector<Place> _trail { {} }; // The pages that led here; the last one is shown. Never empty.
    std::vector<Place> _links; // The links of the shown page, from number 1 on.
};

} // namespace media
