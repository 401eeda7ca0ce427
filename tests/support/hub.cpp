#include "support/hub.h"
#include <filesystem>
#include <gtest/gtest.h>

namespace test {

Hub::Hub() : ChildProcess({ "hub" })
{
    const auto line = readLine();
    EXPECT_TRUE(line && std::filesystem::is_socket(*line)) << "the hub does not tell its socket";
    socket = line.value_or("");
    pipeName = "\\\\.\\pipe\\" + std::filesystem::path(socket).filename().string();
}

Hub::~Hub()
{
    std::error_code ignored;
    std::filesystem::remove(socket, ignored); // A killed hub cannot.
}

} // namespace test
