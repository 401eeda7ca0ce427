// Qt Remote Objects from process to process over Unix sockets: slots that answer, and a signal that the source itself writes
// to each replica.
#include "driver/call_load.h"
#include "driver/event_load.h"
#include "driver/roles.h"
#include "driver/stamp.h"
#include "rep_peer_merged.h"
#include <QCoreApplication>
#include <QRemoteObjectHost>
#include <QRemoteObjectPendingCallWatcher>

namespace bench::qt {
namespace {

constexpr int patienceMilliseconds = 10'000;

std::span<const std::uint8_t> bytes(const QByteArray& array)
{
    return { reinterpret_cast<const std::uint8_t*>(array.constData()), static_cast<std::size_t>(array.size()) };
}

QByteArray stamped(std::uint64_t number, std::size_t size)
{
    QByteArray body(static_cast<qsizetype>(size), Qt::Uninitialized);
    stamp({ reinterpret_cast<std::uint8_t*>(body.data()), size }, number);
    return body;
}

class Source : public PeerSource {
public:
    QByteArray echo(QByteArray) override { fail("a call for somebody else arrived"); }
    void acknowledge(quint64, quint64) override { fail("an acknowledgement for somebody else arrived"); }
};

class EchoSource final : public Source {
public:
    explicit EchoSource(std::size_t resultBytes) : _resultBytes(resultBytes) { }
    QByteArray echo(QByteArray argument) override
    {
        return stamped(answerTo(readStamp(bytes(argument))), _resultBytes);
    }

private:
    const std::size_t _resultBytes;
};

class FeedSource final : public Source {
public:
    explicit FeedSource(const Options& options)
        : _load(options, [this](std::span<const std::uint8_t> body) {
              Q_EMIT event(QByteArray(reinterpret_cast<const char*>(body.data()), static_cast<qsizetype>(body.size())));
          })
    {
    }
    void acknowledge(quint64 index, quint64 events) override { _load.acknowledged(index, events); }

private:
    EventLoad _load;
};

void serve(const Options& options, Source& source)
{
    const auto path = options.text("directory") + "/qt";
    QRemoteObjectHost host(QUrl(QString::fromStdString("local:" + path)));
    if (!host.enableRemoting(&source)) fail("can not serve at " + path);
    announceReady("local:" + path);
    QCoreApplication::exec();
}

void runIdle(const Options& options)
{
    EchoSource source(stampBytes);
    serve(options, source);
}

void runOwner(const Options& options)
{
    EchoSource source(options.count("result_bytes"));
    serve(options, source);
}

void runPublisher(const Options& options)
{
    FeedSource source(options);
    serve(options, source);
}

/// A process with a replica of the source.
class Participant {
public:
    explicit Participant(const Options& options)
    {
        if (!_node.connectToNode(QUrl(QString::fromStdString(options.text("address"))))) fail("no connection");
        _replica.reset(_node.acquire<PeerReplica>());
        if (!_replica->waitForSource(patienceMilliseconds)) fail("no source");
    }

    PeerReplica& replica() { return *_replica; }

private:
    QRemoteObjectNode _node;
    std::unique_ptr<PeerReplica> _replica;
};

void runCaller(const Options& options)
{
    Participant participant(options);
    const auto argumentBytes = options.count("argument_bytes");
    std::function<void(std::uint64_t)> answered;
    CallLoad load(options, [&](std::uint64_t number) {
        auto* const watcher =
            new QRemoteObjectPendingCallWatcher(participant.replica().echo(stamped(number, argumentBytes)));
        QObject::connect(watcher, &QRemoteObjectPendingCallWatcher::finished, watcher, [&, watcher] {
            if (watcher->error() != QRemoteObjectPendingCall::NoError) fail("a call has failed");
            watcher->deleteLater();
            answered(answerTo(readStamp(bytes(watcher->returnValue().toByteArray()))));
        });
    });
    answered = [&](std::uint64_t number) { load.answered(number); };
    announceReady();
    load.start();
    QCoreApplication::exec();
}

void runSubscriber(const Options& options)
{
    Participant participant(options);
    auto& replica = participant.replica();
    EventCount count(options);
    const auto index = options.count("index");
    QObject::connect(&replica, &PeerReplica::event, &replica, [&](const QByteArray& body) {
        if (const auto events = count.received(bytes(body))) replica.acknowledge(index, *events);
    });
    announceReady();
    replica.acknowledge(index, 0);
    QCoreApplication::exec();
}

} // namespace
} // namespace bench::qt

int main(int argc, char** argv)
{
    using namespace bench::qt;
    const bench::Options options(argc, argv);
    const QCoreApplication application(argc, argv);
    bench::play(options,
        { { "idle", runIdle }, { "owner", runOwner }, { "caller", runCaller }, { "publisher", runPublisher },
            { "subscriber", runSubscriber } });
}
