#pragma once
#include "foundation/io/file_descriptor.h"
#include <glib.h>
#include <span>
#include <vector>

namespace core {

/// Descriptors that are watched together, through one of their own: it becomes readable when something happens to one of
/// them, until `acknowledge()`, and then when something happens anew.
class DescriptorSet {
public:
    DescriptorSet(); ///< `fn::IOException` where the process may have no more descriptors.

    int descriptor() const { return _epoll.get(); }

    /// Watches these from now on. Those that cannot be watched (files) are left out; one that was closed meanwhile, and has
    /// its number again, may be left out, too.
    void watch(std::span<const GPollFD> descriptors);
    void acknowledge();

private:
    fn::FileDescriptor _epoll;
    std::vector<GPollFD> _watched;
};

} // namespace core
