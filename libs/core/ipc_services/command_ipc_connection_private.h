#pragma once
#include "base/weak_ptr.h"
#include "core/ipc/wire/message_helper.h"
#include "core/ipc_services/command_ipc.h"

namespace core::detail {

/// A client of the command pipe. Its timer holds it, and runs as long as the stream is open and no handler of a command runs.
class CommandConnection final : public fn::RefCountedObject {
public:
    CommandConnection(CommandIPC& server, fn::uv::Loop& loop);

    void start(fn::uv::PipeStream& listener);
    void readPending() { _stream->readPending(); } ///< It may be closed afterwards.
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
    fn::Handle _self; // The timer.
    fn::uv::Loop& _loop;
    const fn::WeakPtr<CommandIPC> _server;
    fn::Duration _silentSince;
};

} // namespace core::detail
