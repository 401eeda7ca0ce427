// Qt Remote Objects from process to process over Unix sockets: slots that answer, and a signal that the source itself writes
// to each replica.
#include "driver/peer_roles.h"
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

class Source final : public PeerSource {
public:
    explicit Source(const Peer& peer) : _peer(peer) { }

    QByteArray echo(QByteArray argument) override { return stamped(answerTo(readStamp(bytes(argument))), resultBytes); }
    void acknowledge(quint64 index, quint64 events) override { _peer.acknowledged(index, events); }

    std::size_t resultBytes = stampBytes;

private:
    const Peer& _peer;
};

class Participant final : public Peer {
public:
    explicit Participant(const Options& options)
    {
        if (options.role() == "caller" || options.role() == "subscriber")
            connect(options.text("address"));
        else
            host("local:" + options.text("directory") + "/qt");
    }

    void run() { QCoreApplication::exec(); }
    void serve(std::size_t resultBytes) { _source.resultBytes = resultBytes; }

    void call(std::uint64_t number, std::size_t argumentBytes)
    {
        auto* const watcher = new QRemoteObjectPendingCallWatcher(_replica->echo(stamped(number, argumentBytes)));
        QObject::connect(watcher, &QRemoteObjectPendingCallWatcher::finished, watcher, [this, watcher] {
            if (watcher->error() != QRemoteObjectPendingCall::NoError) fail("a call has failed");
            watcher->deleteLater();
            answered(answerTo(readStamp(bytes(watcher->returnValue().toByteArray()))));
        });
    }

    void publish(std::span<const std::uint8_t> body)
    {
        Q_EMIT _source.event(
            QByteArray(reinterpret_cast<const char*>(body.data()), static_cast<qsizetype>(body.size())));
    }

    void subscribe()
    {
        QObject::connect(_replica.get(), &PeerReplica::event, _replica.get(),
            [this](const QByteArray& body) { heard(bytes(body)); });
    }

    void acknowledge(std::uint64_t index, std::uint64_t events) { _replica->acknowledge(index, events); }

private:
    void host(const std::string& url)
    {
        _host.setHostUrl(QUrl(QString::fromStdString(url)));
        if (!_host.enableRemoting(&_source)) fail("can not serve at " + url);
        address = url;
    }

    void connect(const std::string& url)
    {
        if (!_node.connectToNode(QUrl(QString::fromStdString(url)))) fail("no connection");
        _replica.reset(_node.acquire<PeerReplica>());
        if (!_replica->waitForSource(patienceMilliseconds)) fail("no source");
    }

    Source _source { *this };
    QRemoteObjectHost _host;
    QRemoteObjectNode _node;
    std::unique_ptr<PeerReplica> _replica;
};

} // namespace
} // namespace bench::qt

int main(int argc, char** argv)
{
    using namespace bench::qt;
    const bench::Options options(argc, argv);
    const QCoreApplication application(argc, argv);
    bench::play(options, bench::PeerRoles<Participant>::all());
}
