// An application that runs the module which its first argument names, and tells what happens, until a signal ends it.
#include "core/application/application.h"
#include "foundation/coroutine/next.h"
#include <cstdio>
#include <cstdlib>

namespace {

void say(const fn::String& text)
{
    std::puts(text.c_str());
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    const auto* const name = std::getenv("TEST_NAME");
    ipc::Application app(
        { .name = name ? name : "", .isSingle = true, .graceTime = fn::Duration::milliseconds(300) }, argc, argv);
    if (!app.arguments().empty()) app.addModule(app.arguments().front());
    app.scope().connect(app.onCommand(), [](const fn::Value& command) { say(command.at("arguments").toString()); });
    fn::Signal<> never;
    return app.run([&]() -> fn::Promise<void> {
        say("running");
        co_await fn::next(never);
    });
}
