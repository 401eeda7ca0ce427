#pragma once
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace test {

/// An environment variable for the time of a scope; the time zone follows where it is TZ.
class ScopedVariable {
public:
    ScopedVariable(const char* name, const std::string& value) : _name(name)
    {
        if (const char* previous = std::getenv(name)) _previous = previous;
        set(value);
    }
    ScopedVariable(const ScopedVariable&) = delete;
    ~ScopedVariable() { set(_previous); }

private:
    void set(const std::optional<std::string>& value) const
    {
        if (value)
            ::setenv(_name, value->c_str(), 1);
        else
            ::unsetenv(_name);
        ::tzset();
    }

    const char* const _name;
    std::optional<std::string> _previous;
};

} // namespace test
