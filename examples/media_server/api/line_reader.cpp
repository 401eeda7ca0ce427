#include "api/line_reader.h"
#include <iostream>
#include <thread>

namespace media {
namespace {

constexpr std::size_t longestLine = 4096;

void readLines(fn::RunLoop& loop, const std::weak_ptr<LineReader::OnLine>& receiver)
{
    const auto tell = [&](std::optional<std::string> line) {
        loop.post([receiver, line = std::move(line)]() mutable {
            if (const auto onLine = receiver.lock()) (*onLine)(std::move(line));
        });
    };
    std::string line;
    while (!receiver.expired() && std::getline(std::cin, line)) tell(line.substr(0, longestLine));
    tell(std::nullopt);
}

} // namespace

LineReader::LineReader(fn::RunLoop& loop, OnLine onLine) : _onLine(std::make_shared<OnLine>(std::move(onLine)))
{
    std::thread([&loop, receiver = std::weak_ptr(_onLine)] { readLines(loop, receiver); }).detach();
}

LineReader::~LineReader() = default;

} // namespace media
