#include "core/detail/descriptor_set.h"
#include "foundation/io/file.h"
#include <algorithm>
#include <array>
#include <sys/epoll.h>

namespace core {
namespace {

std::uint32_t epollEvents(gushort events)
{
    std::uint32_t result = EPOLLET;
    if (events & G_IO_IN) result |= EPOLLIN;
    if (events & G_IO_OUT) result |= EPOLLOUT;
    if (events & G_IO_PRI) result |= EPOLLPRI;
    return result;
}

bool isSame(const GPollFD& a, const GPollFD& b) { return a.fd == b.fd && a.events == b.events; }

} // namespace

DescriptorSet::DescriptorSet() : _epoll(::epoll_create1(EPOLL_CLOEXEC))
{
    if (!_epoll) fn::File::handleErrno("epoll");
}

void DescriptorSet::watch(std::span<const GPollFD> descriptors)
{
    if (std::ranges::equal(descriptors, _watched, isSame)) return;
    for (const auto& old : _watched) ::epoll_ctl(_epoll.get(), EPOLL_CTL_DEL, old.fd, nullptr);
    _watched.assign(descriptors.begin(), descriptors.end());
    for (const auto& added : _watched) {
        epoll_event event { .events = epollEvents(added.events), .data = {} };
        ::epoll_ctl(_epoll.get(), EPOLL_CTL_ADD, added.fd, &event);
    }
}

void DescriptorSet::acknowledge()
{
    std::array<epoll_event, 64> events;
    ::epoll_wait(_epoll.get(), events.data(), static_cast<int>(events.size()), 0);
}

} // namespace core
