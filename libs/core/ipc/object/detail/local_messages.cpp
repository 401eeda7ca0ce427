#include "core/ipc/object/detail/local_messages.h"

namespace ipc {
namespace {

constexpr std::size_t mostKeptBytes = 1024; // Of the content. Larger ones are freed.

} // namespace

LocalMessages::Holder LocalMessages::take()
{
    auto message = _keptCount > 0 ? std::move(_kept[--_keptCount]) : std::make_unique<LocalMessage>();
    return Holder(message.release(), GiveBack { this });
}

void LocalMessages::giveBack(std::unique_ptr<LocalMessage> message) noexcept
{
    auto& [bytes, objects] = message->content;
    objects.clear();
    bytes.clear();
    if (bytes.capacity() <= mostKeptBytes && _keptCount < _kept.size()) _kept[_keptCount++] = std::move(message);
}

} // namespace ipc
