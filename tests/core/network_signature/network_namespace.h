#pragma once
#include <string>

namespace test {

/// A network of this thread's own, with nothing but a loopback adapter, for as long as this lives. Processes that are started
/// meanwhile are in it. Real adapters, addresses and routes, which nobody else sees.
class NetworkNamespace {
public:
    NetworkNamespace();
    NetworkNamespace(const NetworkNamespace&) = delete;
    NetworkNamespace& operator=(const NetworkNamespace&) = delete;
    ~NetworkNamespace();

    /// Why there is none, or "": this system may not let us have one.
    const std::string& problem() const { return _problem; }

    /// Runs commands of ip(8), one a line, without the leading "ip". Throws when one fails.
    void ip(const std::string& commands);

private:
    int _outside = -1; // Where we came from.
    std::string _problem;
};

} // namespace test
