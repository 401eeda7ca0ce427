#pragma once
#include "api/application.h"
#include "core/application/application.h"
#include "skyfold/options.h"
#include <deque>
#include <optional>

namespace media {

/// The main program.
class Program {
public:
    explicit Program(Options options);
    int run(); ///< To be called once. Gives the exit code.

private:
    class ApplicationService;

    fn::Promise<int> main();
    void offerObjects();
    fn::Promise<std::optional<RunOptions>> nextScan();
    void onCommand(const fn::Value& value);
    void onAnnouncement(const fn::String& name, const fn::Value& body);

    const Options _options;
    ipc::Application _app;
    std::deque<RunOptions> _nextScans; // Scans that other starts of the program have handed over.
    fn::Signal<> _onScan; // One has been handed over.
    fn::Signal<Ending> _onFinish; // The console has nothing left to do.
};

} // namespace media
