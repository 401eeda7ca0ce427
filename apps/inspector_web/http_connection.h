#pragma once
#include "base/file_descriptor.h"
#include "foundation/uv/poll.h"
#include "inspector_web/web_request.h"
#include <optional>

namespace inspector_web {

class Access;

/// One connection of a browser, or of any other program that has found the port: one request, one answer, the end.
///
///     reading --all of the head--> being answered --page--> writing --all of it--> closing, until the other side has
///
/// Each state has a bound in time. Belongs to the loop's thread.
class HttpConnection {
public:
    static constexpr std::size_t mostRequestBytes = 32 * 1024; ///< Twice what browsers send with the longest address.
    static constexpr auto mostReading = fn::Duration::seconds(5);
    static constexpr auto mostWriting = fn::Duration::seconds(20);
    static constexpr auto mostClosing = fn::Duration::seconds(2);

    /// Borrows all but the socket.
    HttpConnection(fn::uv::Loop& loop, fn::FileDescriptor socket, const Access& access, Answering& answering);
    HttpConnection(const HttpConnection&) = delete;
    ~HttpConnection(); ///< Closes the socket.

    void start(fn::Task onEnd); ///< To be called once. `onEnd` is called once, and destroys this connection.

    bool isOwedAnAnswer() const { return _isOwedAnAnswer; } ///< Whether its request is being answered.

private:
    void read();
    void answer(bool isComplete);
    void respond(int status, std::string_view type, std::string_view content, std::string_view headers = {});
    void refuse(int status);
    void write();
    void close();
    void end();
    void watch(fn::uv::Poll::Event event, void (HttpConnection::*action)());
    void limit(fn::Duration most);

    fn::uv::Loop& _loop;
    const fn::FileDescriptor _socket;
    const Access& _access;
    Answering& _answering;
    fn::Task _onEnd;
    std::optional<fn::uv::Poll> _watch;
    fn::Handle _deadline;
    std::string _received; // All bytes of the request so far.
    bool _isOwedAnAnswer = false;
    fn::Promise<void> _page; // The page that is being made.
    std::string _response;
    std::size_t _written = 0; // Bytes of `_response` that were written.
};

} // namespace inspector_web
