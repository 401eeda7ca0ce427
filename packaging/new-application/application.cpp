#include "application.h"
#include "core/objects.h"
#include "greeting.h"

int runApplication(int argc, char** argv, std::ostream& output)
{
    ipc::Application app({ .name = "@NAME@", .id = "@ID@", .version = "0.1.0" }, argc, argv);
    app.addModule("greeter");
    return app.run([&]() -> fn::Promise<int> {
        const auto greeter = co_await app.find<Greeting>();
        output << co_await greeter->greet("world") << std::endl;
        co_return 0;
    });
}
