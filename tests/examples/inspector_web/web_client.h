#pragma once
#include "base/file_descriptor.h"
#include <string>
#include <vector>

namespace test {

/// What came back: of no status where it is no answer at all.
struct WebReply {
    int status = 0;
    std::string head; ///< Status line and headers.
    std::string body;
};

/// A connection to the loopback interface, spoken on byte by byte.
class WebConnection {
public:
    explicit WebConnection(int port, const char* address = "127.0.0.1"); ///< Connects.

    bool isOpen() const { return static_cast<bool>(_socket); } ///< Whether somebody has taken the connection.
    bool send(std::string_view bytes) const; ///< False where the other side has closed.
    bool hasEnded() const; ///< Whether the other side has closed, or answered. Does not wait.
    WebReply reply() const; ///< All until the other side closes, within a bound.

private:
    fn::FileDescriptor _socket;
};

/// "http://127.0.0.1:PORT/TOKEN/" and its parts.
struct WebAddress {
    explicit WebAddress(const std::string& text);

    std::string request(const std::string& page) const; ///< As a browser asks for an address below.
    WebReply get(const std::string& page) const; ///< Sends that, alone.

    std::string text;
    int port = 0;
    std::string token;
    std::string host;
};

/// Target and text of all links of a page.
std::vector<std::pair<std::string, std::string>> links(const std::string& html);

/// The target of the first link whose text contains `text`. "" and a failure of the test where there is none.
std::string linkOf(const std::string& html, const std::string& text);

} // namespace test
