// Rung 9: a thumbnail server of three modules. One watches a folder, one decodes pictures, one keeps what has been decoded.
#include "cache.h"
#include "core/application/application.h"
#include "core/ipc/interface/remote.h"
#include "foundation/coroutine/channel.h"
#include "watcher.h"
#include <filesystem>
#include <fmt/format.h>
#include <fstream>

namespace {

struct Folder { // A new one, which goes at the end.
    std::string path = (std::filesystem::temp_directory_path() / "thumbnails.XXXXXX").string();
    Folder()
    {
        if (!::mkdtemp(path.data())) throw fn::RuntimeException("There is no folder for the pictures");
    }
    ~Folder() { std::filesystem::remove_all(path); }
};

/// A picture of 80 x 40 pixels: white where `isWhite(x, y)`, x and y from -1 to 1.
void draw(const std::string& path, bool (*isWhite)(double x, double y))
{
    std::ofstream file(path, std::ios::binary);
    file << "P5 80 40 255\n";
    for (int i = 0; i < 80 * 40; ++i) file.put(isWhite(i % 80 / 40.0 - 1, i / 80 / 20.0 - 1) ? '\xff' : '\0');
}

void show(const Thumbnail& thumbnail)
{
    const auto width = static_cast<std::size_t>(thumbnail.width);
    for (std::size_t i = 0; i < thumbnail.pixels.size(); ++i)
        fmt::print("{}{}", thumbnail.pixels.data()[i] ? '#' : '.', (i + 1) % width == 0 ? "\n" : "");
}

fn::Promise<void> run(ipc::Application& app)
{
    ipc::Remote<Watcher> watcher(app.worker());
    ipc::Remote<Cache> cache(app.worker());
    const Folder folder;
    fn::Channel<fn::String> pictures(16);
    const auto hearing = watcher->appeared.connect([&](const fn::String& path) { pictures.send(path).ignore(); });
    co_await watcher->watch(folder.path);

    draw(folder.path + "/disc.pgm", [](double x, double y) { return x * x + y * y < 0.8; });
    draw(folder.path + "/hill.pgm", [](double x, double y) { return y > x * x; });
    for (int round = 0; round < 2; ++round) {
        const auto path = co_await pictures.receive();
        show(co_await cache->thumbnail(*path));
        co_await cache->thumbnail(*path); // This one is there already.
    }
    fmt::print("{} thumbnails were made.\n", co_await cache->made.get());
}

} // namespace

int main() { return ipc::Application({ .modules = { "9_decoder", "9_cache", "9_watcher" } }).run(run); }
