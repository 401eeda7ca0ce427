#include "web_client.h"
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <regex>
#include <sys/socket.h>

namespace test {
namespace {

// Between two pieces: sanitizers, and machines that do other things, take their time.
constexpr timeval bound { .tv_sec = 60, .tv_usec = 0 };

} // namespace

WebConnection::WebConnection(int port, const char* address) : _socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in to {};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<std::uint16_t>(port));
    ::inet_pton(AF_INET, address, &to.sin_addr);
    ::setsockopt(_socket.get(), SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof bound);
    if (::connect(_socket.get(), reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) _socket.close();
}

bool WebConnection::send(std::string_view bytes) const
{
    return ::send(_socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

bool WebConnection::hasEnded() const
{
    char byte = 0;
    return ::recv(_socket.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) >= 0 || errno != EAGAIN;
}

WebReply WebConnection::reply() const
{
    std::string text;
    std::array<char, 4096> buffer;
    ssize_t count = 0;
    while ((count = ::recv(_socket.get(), buffer.data(), buffer.size(), 0)) > 0)
        text.append(buffer.data(), static_cast<std::size_t>(count));
    EXPECT_FALSE(count < 0 && errno == EAGAIN) << "The connection stays open.";
    WebReply reply;
    const auto end = text.find("\r\n\r\n");
    if (!text.starts_with("HTTP/1.1 ") || end == std::string::npos) return reply;
    reply.status = std::stoi(text.substr(9, 3));
    reply.head = text.substr(0, end + 2);
    reply.body = text.substr(end + 4);
    return reply;
}

WebAddress::WebAddress(const std::string& text) : text(text)
{
    static const std::regex form("http://127\\.0\\.0\\.1:([0-9]+)/([0-9a-f]{32,})/");
    std::smatch parts;
    if (!std::regex_match(text, parts, form)) {
        ADD_FAILURE() << "No address: " << text;
        return;
    }
    port = std::stoi(parts[1]);
    token = parts[2];
    host = "127.0.0.1:" + parts[1].str();
}

std::string WebAddress::request(const std::string& page) const
{
    return "GET /" + token + "/" + page + " HTTP/1.1\r\nHost: " + host + "\r\n\r\n";
}

WebReply WebAddress::get(const std::string& page) const
{
    const WebConnection connection(port);
    connection.send(request(page == "./" ? "" : page));
    return connection.reply();
}

std::vector<std::pair<std::string, std::string>> links(const std::string& html)
{
    static const std::regex form("<a href=\"([^\"]*)\">([^<]*)</a>");
    std::vector<std::pair<std::string, std::string>> result;
    for (std::sregex_iterator at(html.begin(), html.end(), form), end; at != end; ++at)
        result.emplace_back(std::regex_replace((*at)[1].str(), std::regex("&amp;"), "&"), (*at)[2]);
    return result;
}

std::string linkOf(const std::string& html, const std::string& text)
{
    for (const auto& [target, shown] : links(html)) {
        if (shown.find(text) != std::string::npos) return target;
    }
    ADD_FAILURE() << "No link says " << text << ":\n" << html;
    return {};
}

} // namespace test
