// The module 9_decoder: reads pictures of grey pixels ("P5 WIDTH HEIGHT 255", a line end, the pixels).
#include "decoder.h"
#include "core/ipc/interface/service.h"
#include "core/ipc/service_module.h"
#include "foundation/coroutine/on_pool.h"
#include <fstream>

namespace {

Thumbnail pictureAt(const fn::String& path)
{
    std::ifstream file(path.c_str(), std::ios::binary);
    std::string format;
    Thumbnail picture;
    int brightest = 0;
    file >> format >> picture.width >> picture.height >> brightest;
    file.ignore();
    if (!file || format != "P5" || brightest != 255 || std::min(picture.width, picture.height) < 1
        || std::max(picture.width, picture.height) > 10'000)
        throw fn::DataFormatException("No picture: " + path);
    picture.pixels.resize(static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height));
    file.read(
        reinterpret_cast<char*>(picture.pixels.mutableData()), static_cast<std::streamsize>(picture.pixels.size()));
    if (!file) throw fn::EndOfStreamException("The picture ends too early: " + path);
    return picture;
}

/// Takes the pixel in the middle of each square of `step` by `step`.
Thumbnail shrunk(const Thumbnail& picture, int step)
{
    Thumbnail small { std::max(picture.width / step, 1), std::max(picture.height / step, 1), {} };
    for (int y = 0; y < small.height; ++y) {
        for (int x = 0; x < small.width; ++x) {
            const int from = std::min(y * step + step / 2, picture.height - 1) * picture.width
                + std::min(x * step + step / 2, picture.width - 1);
            small.pixels.append(picture.pixels.data() + from, 1);
        }
    }
    return small;
}

} // namespace

class DecoderService final : public ipc::Service<DecoderService, Decoder> {
public:
    using Service::Service;
    fn::Promise<Thumbnail> shrink(fn::String path, int longestSide)
    {
        const auto load = [path] { return pictureAt(path); };
        const auto picture = co_await fn::onPool(load); // A thread of the pool waits for the disk, not the loop.
        const int side = std::max(picture.width, picture.height);
        co_return shrunk(picture, std::max(side / std::max(longestSide, 1), 1));
    }
};

IPC_MODULE_ENTRY_POINT(ipc::ServiceModule<DecoderService>, "Decoder")
