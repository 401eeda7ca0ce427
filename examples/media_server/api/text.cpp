#include "api/text.h"
#include "base/exception.h"
#include "foundation/system/environment.h"
#include <fmt/format.h>
#include <glib.h>
#include <iterator>
#include <unistd.h>

namespace media {

std::string printable(std::string_view text)
{
    std::string result;
    for (const char* at = text.data(); at != text.data() + text.size();) {
        const auto left = static_cast<gssize>(text.data() + text.size() - at);
        const auto character = g_utf8_get_char_validated(at, left);
        const bool isValid = character < static_cast<gunichar>(-2); // The last two mean cut or no UTF-8.
        const auto bytes = isValid ? g_utf8_next_char(at) - at : 1;
        if (character == '\\') {
            result += "\\\\";
        } else if (isValid && g_unichar_isprint(character)) {
            result.append(at, static_cast<std::size_t>(bytes));
        } else {
            for (int i = 0; i < bytes; ++i) {
                fmt::format_to(std::back_inserter(result), "\\x{:02x}", static_cast<unsigned char>(at[i]));
            }
        }
        at += bytes;
    }
    return result;
}

std::string describe(std::exception_ptr failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (const fn::Exception& exception) {
        const auto text = printable(exception.displayText());
        const auto* path = exception.find<fn::PathInfo>();
        return path ? printable(*path) + ": " + text : text;
    } catch (const std::exception& exception) {
        return printable(exception.what());
    } catch (...) {
        return "unknown failure";
    }
}

bool isTerminal(int descriptor)
{
    return ::isatty(descriptor) && fn::Environment::get("TERM").value_or("dumb") != "dumb";
}

} // namespace media
