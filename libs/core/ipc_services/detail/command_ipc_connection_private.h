#pragma once
#include "base/weak_ptr.h"
#include "core/ipc/wire/message_helper.h"
#include "core/ipc_services/command_ipc.h"

namespace core::detail {

/// One connection of the command pipe. Its timer, which holds it, runs while the stream is open and no listener handles a command.
class CommandConnection final : public fn::RefCountedObject {
public:
    CommandConnection(CommandIPC& server, fn::uv::Loop& loop);

    void start(fn::uv::PipeStream& listener);
    void readPending() { _stream->readPending(); } ///< The connection may be closed afterwards.
    void close();

private:
    ~CommandConnection() override;
    void awaitCommand();
    void lookAgainLater();
    void receive(const fn::Value& command);
    bool othersWait() const;
    void onTimer();
    void fail(const fn::uv::Status& status);

    const fn::AutoPtr<fn::uv::PipeStream> _stream;
    ipc::MessageHelper _messageHelper;
    fn::Handle _self; // The timer, whose callback holds this connection.
    fn::uv::Loop& _loop;
    const fn::WeakPtr<CommandIPC> _server;
    fn::Duration _silentSince;
};

} // namespace core::detail
