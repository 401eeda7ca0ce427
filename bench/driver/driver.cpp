#include "driver/driver.h"
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <fmt/format.h>
#include <unistd.h>

namespace bench {
namespace {

void printLine(const std::string& line)
{
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
}

template <typename Number> Number parse(const std::string& key, const std::string& text)
{
    Number number {};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) fail(fmt::format("{}={} is no number", key, text));
    return number;
}

} // namespace

Options::Options(int argc, char** argv)
{
    if (argc < 3) fail("usage: DRIVER ROLE SCENARIO [KEY=VALUE...]");
    _role = argv[1];
    for (int i = 3; i < argc; ++i) {
        const std::string_view argument(argv[i]);
        const auto equals = argument.find('=');
        if (equals == std::string_view::npos) fail(fmt::format("not KEY=VALUE: {}", argument));
        _values[std::string(argument.substr(0, equals))] = argument.substr(equals + 1);
    }
}

const std::string& Options::text(const std::string& key) const
{
    const auto value = _values.find(key);
    if (value == _values.end()) fail("missing on the command line: " + key);
    return value->second;
}

std::uint64_t Options::count(const std::string& key) const { return parse<std::uint64_t>(key, text(key)); }
double Options::seconds(const std::string& key) const { return parse<double>(key, text(key)); }

void announceReady(std::string_view address)
{
    printLine(address.empty() ? "ready" : fmt::format("ready {}", address));
}

void report(const std::vector<std::pair<std::string, double>>& results)
{
    std::string fields;
    for (const auto& [name, value] : results) {
        fields += fmt::format(R"({}"{}": {})", fields.empty() ? "" : ", ", name, value);
    }
    printLine(fmt::format("report {{{}}}", fields));
}

void fail(const std::string& message)
{
    std::fputs((message + "\n").c_str(), stderr);
    std::fflush(stderr);
    ::_exit(1); // Nothing is unwound: callbacks of an event loop may be on the stack.
}

void failWith(const char* step, std::exception_ptr exception)
{
    try {
        std::rethrow_exception(exception);
    } catch (const std::exception& error) {
        fail(fmt::format("{}: {}", step, error.what()));
    }
}

double percentile(std::vector<double>& values, double fraction)
{
    if (values.empty()) fail("nothing was timed");
    const auto nth = values.begin() + static_cast<std::ptrdiff_t>(fraction * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), nth, values.end());
    return *nth;
}

} // namespace bench
