// Any bytes from a client of the command pipe: exactly the commands of the whole frames before the first fault are signalled,
// and the connection ends. A real server, since what is read and what becomes of the connection go together.
#include "core/ipc_services/command_ipc.h"
#include "foundation/io/memory_input_stream.h"
#include "foundation/logging/category_manager.h"
#include "foundation/mpack/deserializer.h"
#include "foundation/system/environment.h"
#include "foundation/uv/loop.h"
#include "platform/pipe_path.h"
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t maxInputBytes = 64 * 1024; // Fits into the socket, so that writing does not wait for reading.

void require(bool condition)
{
    if (!condition) std::abort();
}

std::string makeFolder()
{
    auto path = (std::filesystem::temp_directory_path() / "command_ipc_fuzz.XXXXXX").string();
    require(::mkdtemp(path.data()));
    return path;
}

/// Each fault is a line in the log, which nobody wants to read here.
class NoSink final : public fn::logging::Sink {
public:
    int threshold(const fn::logging::Category&) const override { return 0; }
    void logMessage(const fn::logging::Category&, const fn::logging::Message&) override { }
};

class Server {
public:
    Server()
    {
        fn::logging::CategoryManager::instance().addSink(fn::makeAuto<NoSink>());
        _server->onCommand().connect([this](const fn::Value& command) { _commands.push_back(command); }).detach();
        _loop.post([this] {
            _server->bind();
            _loop.stop();
        });
        _loop.run();
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    ~Server()
    {
        _server.reset();
        std::filesystem::remove_all(_folder);
    }

    std::vector<fn::Value> read(std::string_view bytes)
    {
        _commands.clear();
        const auto address = platform::socketAddress(
            platform::pipePath(R"(\\.\pipe\skyfold-command-ipc.)" + fn::Environment::userName()));
        _client = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        require(::connect(_client, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0);
        require(::send(_client, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size()));
        ::shutdown(_client, SHUT_WR);
        awaitEnd();
        _loop.run();
        ::close(_client);
        return std::exchange(_commands, {});
    }

private:
    void awaitEnd()
    {
        char byte;
        const auto count = ::recv(_client, &byte, 1, MSG_DONTWAIT);
        require(count <= 0); // Nothing is answered.
        if (count == 0 || errno != EAGAIN)
            _loop.stop();
        else
            _loop.post([this] { awaitEnd(); });
    }

    const std::string _folder = makeFolder();
    const platform::ScopedPipeFolder _pipes { _folder };
    fn::uv::Loop _loop;
    fn::AutoPtr<core::CommandIPC> _server = fn::makeAuto<core::CommandIPC>();
    std::vector<fn::Value> _commands;
    int _client = -1;
};

std::optional<fn::Value> decode(std::string_view body)
{
    try {
        fn::MemoryInputStream stream((fn::ByteArray(body)));
        auto value = fn::mpack::Deserializer(stream).deserialize();
        return stream.remaining() == 0 ? value : std::nullopt;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::vector<fn::Value> commandsIn(std::string_view bytes)
{
    std::vector<fn::Value> commands;
    while (bytes.size() >= 4) {
        std::size_t length = 0;
        for (std::size_t byte = 4; byte-- > 0;) length = length << 8 | static_cast<std::uint8_t>(bytes[byte]);
        if (length == 0 || length > bytes.size() - 4 || length > core::CommandIPC::maxCommandBytes) break;
        auto command = decode(bytes.substr(4, length));
        if (!command) break;
        commands.push_back(std::move(*command));
        bytes.remove_prefix(4 + length);
    }
    return commands;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Server server;
    const auto bytes = std::string_view(reinterpret_cast<const char*>(data), std::min(size, maxInputBytes));
    require(server.read(bytes) == commandsIn(bytes));
    return 0;
}
