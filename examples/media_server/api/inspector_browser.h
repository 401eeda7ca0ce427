#pragma once
#include "api/inspection.h"
#include "api/line_reader.h"
#include <deque>
#include <folly/Function.h>
#include <vector>

namespace media {

/// Walks the inspectors of the application on the terminal: shows a page with its links numbered, and waits for a number or
/// a command on standard input. Pages come from anywhere, so they are shown printable.
class FN_EXPORT InspectorBrowser final : public fn::RefCountedObject {
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
    void onLine(std::optional<std::string>&& line);
    void work();
    void obey(const std::string& command);
    void visit(Place place);
    void show();
    fn::Promise<void> showList();
    fn::Promise<void> showPage();
    void print(const Place& place, const core::InspectionResult& result);
    void prompt();
    void say(const std::string& text);

    ipc::Worker& _worker;
    folly::Function<void()> _onQuit;
    fn::AutoPtr<core::InspectorRegistry> _inspectors; // Once found.
    std::vector<Place> _trail; // The page that is shown last; never empty once started.
    std::vector<Place> _links; // Of that page, from number 1 on.
    std::deque<std::optional<std::string>> _lines; // Not obeyed yet.
    std::unique_ptr<LineReader> _reader;
    fn::Promise<void> _work; // The page that is being fetched.
    bool _isBusy = false;
    bool _stopped = false;
};

} // namespace media
