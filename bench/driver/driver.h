#pragma once
#include <cstdint>
#include <exception>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bench {

/// The command line of every driver program: ROLE SCENARIO [KEY=VALUE...]. bench/README.md lists roles and keys.
class Options {
public:
    Options(int argc, char** argv);

    const std::string& role() const { return _role; }
    const std::string& text(const std::string& key) const; ///< A missing key ends the program with a message.
    std::uint64_t count(const std::string& key) const;
    double seconds(const std::string& key) const;

private:
    std::string _role;
    std::map<std::string, std::string> _values;
};

/// Tells the orchestrator on standard output that this process has found what it needs. A hub gives the address by
/// which the other processes reach it.
void announceReady(std::string_view address = {});

/// Hands results to the orchestrator, as one line of JSON on standard output.
void report(const std::vector<std::pair<std::string, double>>& results);

/// Ends the process at once with a message: a measurement that went wrong must not look like a fast one.
[[noreturn]] void fail(const std::string& message);

/// The same for the exception with which a step has failed.
[[noreturn]] void failWith(const char* step, std::exception_ptr exception);

/// That fraction of the values lies below. They get another order; where there are none the program ends.
double percentile(std::vector<double>& values, double fraction);

} // namespace bench
