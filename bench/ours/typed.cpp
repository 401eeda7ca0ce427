// The same jobs by an interface.
#include "ours/typed.h"
#include "core/ipc/interface/find.h"
#include "core/ipc/interface/service.h"
#include "driver/call_load.h"
#include "driver/event_load.h"
#include "ours/participant.h"
#include "ours/record.h"

namespace bench {

FN_FIELDS(Record, number, check, name, width, height, scale)

namespace ours {

struct Board : ipc::Interface<Board> {
    ipc::Method<fn::ByteArray(fn::ByteArray argument)> echo;
    ipc::Method<Record(Record argument)> echoRecord;
    ipc::Method<void(std::uint64_t index, std::uint64_t events)> acknowledge;
    ipc::Event<fn::ByteArray> event;
    IPC_MEMBERS(echo, echoRecord, acknowledge, event)
};

class BoardService final : public ipc::Service<BoardService, Board> {
public:
    using Service::Service;
    std::function<void(std::uint64_t index, std::uint64_t events)> acknowledge;

    fn::ByteArray echo(const fn::ByteArray& argument) const
    {
        return stamped(answerTo(readStamp(argument.bytes())), stampBytes);
    }
    Record echoRecord(const Record& argument) const { return recordOf(answerTo(numberOf(argument))); }
};

struct Bytes {
    static fn::ByteArray of(std::uint64_t number) { return stamped(number, stampBytes); }
    static std::uint64_t numberIn(const fn::ByteArray& bytes) { return readStamp(bytes.bytes()); }
    static auto call(const Board& board, const fn::ByteArray& argument) { return board.echo(argument); }
};

struct Records {
    static Record of(std::uint64_t number) { return recordOf(number); }
    static std::uint64_t numberIn(const Record& record) { return numberOf(record); }
    static auto call(const Board& board, const Record& argument) { return board.echoRecord(argument); }
};

template <typename Kind> class TypedCaller {
public:
    explicit TypedCaller(const Options& options)
        : _awaits(options.count("awaits") != 0),
          _load(options, [this](std::uint64_t number) { call(number); })
    {
    }

    void start(ipc::Ref<Board> board)
    {
        _board = std::move(board);
        _load.start();
    }

private:
    void call(std::uint64_t number)
    {
        if (_awaits) return callAndAwait(number).ignore();
        const auto argument = Kind::of(number);
        Kind::call(*_board.operator->(), argument)
            .then([this, number](auto&& result) { answered(number, Kind::numberIn(result)); }, failing("call"));
    }

    fn::Promise<void> callAndAwait(std::uint64_t number)
    {
        try {
            const auto argument = Kind::of(number);
            const auto result = co_await Kind::call(*_board.operator->(), argument);
            answered(number, Kind::numberIn(result));
        } catch (...) {
            failWith("call", std::current_exception());
        }
    }

    void answered(std::uint64_t number, std::uint64_t answer)
    {
        if (answer != answerTo(number)) fail("a wrong result arrived");
        _load.answered(number);
    }

    const bool _awaits;
    CallLoad _load;
    ipc::Ref<Board> _board;
};

namespace {

void runOwner(const Options& options)
{
    Participant owner(options);
    owner.run([&] { owner.publish(fn::makeAuto<BoardService>(owner.worker())); });
}

template <typename Kind> void callFrom(const Options& options)
{
    Participant participant(options);
    TypedCaller<Kind> caller(options);
    participant.run([&] {
        ipc::find<Board>(participant.worker(), fn::Duration::seconds(10))
            .then(
                [&](ipc::Ref<Board>&& board) {
                    announceReady();
                    caller.start(std::move(board));
                },
                failing("find"));
    });
}

template <typename Kind> void callWithin(const Options& options)
{
    Participant participant(options);
    TypedCaller<Kind> caller(options);
    participant.run([&] {
        announceReady();
        caller.start(fn::makeAuto<BoardService>(participant.worker()));
    });
}

bool hasRecords(const Options& options) { return options.count("records") != 0; }

void runCaller(const Options& options) { (hasRecords(options) ? callFrom<Records> : callFrom<Bytes>)(options); }
void runLocal(const Options& options) { (hasRecords(options) ? callWithin<Records> : callWithin<Bytes>)(options); }

void runPublisher(const Options& options)
{
    Participant publisher(options);
    fn::AutoPtr<BoardService> board;
    EventLoad load(options,
        [&](std::span<const std::uint8_t> body) { board->shared.event(fn::ByteArray(body.data(), body.size())); });
    publisher.run([&] {
        board = fn::makeAuto<BoardService>(publisher.worker());
        board->acknowledge = [&](std::uint64_t index, std::uint64_t events) { load.acknowledged(index, events); };
        publisher.publish(board);
    });
}

void runSubscriber(const Options& options)
{
    Participant subscriber(options);
    EventCount count(options);
    const auto index = options.count("index");
    ipc::Ref<Board> board;
    fn::Handle heard;
    const auto acknowledge = [&](std::uint64_t events) {
        board->acknowledge(index, events).then([] {}, failing("acknowledge"));
    };
    subscriber.run([&] {
        ipc::find<Board>(subscriber.worker(), fn::Duration::seconds(10))
            .then(
                [&](ipc::Ref<Board>&& found) {
                    board = std::move(found);
                    heard = board->event.connect([&](const fn::ByteArray& body) {
                        if (const auto events = count.received(body.bytes())) acknowledge(*events);
                    });
                    announceReady();
                    acknowledge(0);
                },
                failing("find"));
    });
}

} // namespace

Roles typedRoles()
{
    return { { "owner", runOwner }, { "caller", runCaller }, { "local", runLocal }, { "publisher", runPublisher },
        { "subscriber", runSubscriber } };
}

} // namespace ours
} // namespace bench
