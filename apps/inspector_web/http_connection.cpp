#include "inspector_web/http_connection.h"
#include "inspector_web/access.h"
#include "inspector_web/html_page.h"
#include "inspector_web/request_head.h"
#include <array>
#include <cerrno>
#include <charconv>
#include <fmt/format.h>
#include <sys/socket.h>

namespace inspector_web {
namespace {

constexpr std::size_t chunkBytes = 4096;

const char* reasonOf(int status)
{
    switch (status) {
    case 200: return "OK";
    case 403: return "Forbidden";
    case 404: return "Not found";
    case 405: return "Method not allowed";
    case 431: return "Request too large";
    default: return "No page";
    }
}

/// Decodes "%41+b" to "A b". A '%' that begins no code stays as it is.
std::string decoded(std::string_view text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned char byte = 0;
        const auto* code = text.data() + i + 1;
        if (text[i] == '%' && i + 2 < text.size() && std::from_chars(code, code + 2, byte, 16).ptr == code + 2) {
            result += static_cast<char>(byte);
            i += 2;
        } else {
            result += text[i] == '+' ? ' ' : text[i];
        }
    }
    return result;
}

std::map<std::string, std::string> parametersOf(std::string_view query)
{
    std::map<std::string, std::string> result;
    while (!query.empty()) {
        const auto pair = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(pair.size() + 1, query.size()));
        const auto name = pair.substr(0, pair.find('='));
        result.emplace(decoded(name), decoded(pair.substr(std::min(name.size() + 1, pair.size()))));
    }
    return result;
}

} // namespace

HttpConnection::HttpConnection(
    fn::uv::Loop& loop, fn::FileDescriptor socket, const Access& access, Answering& answering)
    : _loop(loop),
      _socket(std::move(socket)),
      _access(access),
      _answering(answering)
{
}

HttpConnection::~HttpConnection()
{
    if (_page) _page.cancel();
}

void HttpConnection::start(fn::Task onEnd)
{
    _onEnd = std::move(onEnd);
    limit(mostReading);
    watch(fn::uv::Poll::Event::Readable, &HttpConnection::read);
}

void HttpConnection::limit(fn::Duration most)
{
    _deadline = _loop.schedule(most, [this] { end(); });
}

void HttpConnection::watch(fn::uv::Poll::Event event, void (HttpConnection::*action)())
{
    _watch.reset(); // A descriptor can have one watch only.
    _watch.emplace(
        _loop, _socket.get(), [this, action] { (this->*action)(); }, event);
}

/// To be called last: destroys this connection.
void HttpConnection::end()
{
    auto onEnd = std::exchange(_onEnd, {});
    onEnd();
}

// --- Request

void HttpConnection::read()
{
    std::array<char, chunkBytes> chunk;
    const auto count = ::recv(_socket.get(), chunk.data(), chunk.size(), 0);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (count <= 0) return end();
    constexpr std::string_view emptyLine = "\n\r\n";
    const auto seen = _received.size() - std::min(_received.size(), emptyLine.size() - 1);
    _received.append(chunk.data(), static_cast<std::size_t>(count));
    const bool isComplete = _received.find(emptyLine, seen) != std::string::npos;
    if (isComplete || _received.size() > mostRequestBytes) answer(isComplete);
}

void HttpConnection::answer(bool isComplete)
{
    _watch.reset();
    _deadline.invalidate(); // The code that makes the page has a bound of its own.
    const RequestHead head(_received);
    if (const int status = _access.statusOf(head); status != 200) return refuse(status);
    if (!isComplete) return refuse(431);
    if (head.method != "GET") return refuse(405);
    _isOwedAnAnswer = true;
    _page =
        _answering({ decoded(*_access.below(head.path)), parametersOf(head.query) }).then([this](WebAnswer&& answer) {
            respond(answer.status, "text/html", answer.html);
        });
}

// --- Response

/// Answers with the status alone.
void HttpConnection::refuse(int status)
{
    respond(status, "text/plain", fmt::format("{}\n", reasonOf(status)), status == 405 ? "Allow: GET\r\n" : "");
}

void HttpConnection::respond(int status, std::string_view type, std::string_view content, std::string_view headers)
{
    _response = fmt::format("HTTP/1.1 {} {}\r\n"
                            "Connection: close\r\n"
                            "Content-Type: {}; charset=utf-8\r\n"
                            "Content-Length: {}\r\n"
                            "Content-Security-Policy: {}\r\n"
                            "X-Content-Type-Options: nosniff\r\n"
                            "Referrer-Policy: no-referrer\r\n"
                            "Cache-Control: no-store\r\n"
                            "Cross-Origin-Resource-Policy: same-origin\r\n"
                            "{}\r\n{}",
        status, reasonOf(status), type, content.size(), HtmlPage::contentSecurityPolicy(), headers, content);
    limit(mostWriting);
    watch(fn::uv::Poll::Event::Writable, &HttpConnection::write);
}

void HttpConnection::write()
{
    const auto left = std::string_view(_response).substr(_written);
    const auto count = ::send(_socket.get(), left.data(), left.size(), MSG_NOSIGNAL);
    if (count < 0) {
        if (errno != EAGAIN && errno != EINTR) end();
        return;
    }
    _written += static_cast<std::size_t>(count);
    if (_written < _response.size()) return;
    _isOwedAnAnswer = false;
    // A close with unread bytes would reset the connection, and the answer would be lost.
    ::shutdown(_socket.get(), SHUT_WR);
    limit(mostClosing);
    watch(fn::uv::Poll::Event::Readable, &HttpConnection::close);
}

/// Reads and drops bytes until the other side has closed.
void HttpConnection::close()
{
    std::array<char, chunkBytes> chunk;
    const auto count = ::recv(_socket.get(), chunk.data(), chunk.size(), 0);
    if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) end();
}

} // namespace inspector_web
