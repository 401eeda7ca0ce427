#include "core/application/command_line.h"
#include <cstdio>

namespace ipc {
namespace {

constexpr int wrongUsage = 2;
constexpr int mostDetailed = 7;

constexpr auto ownOptions = R"(
Options:
  -h, --help      Print this help and end
  --version       Print the version and end
  --log PRIORITY  Show log messages up to this priority, 0 (none) to 7 (all)
  --verbose       Let verbose logging profiles take messages, in all processes
)";

void printHelp(std::span<const char* const> arguments, const ApplicationOptions& options)
{
    const fn::String program = arguments.empty() ? options.identity().id : fn::String(arguments.front());
    const auto slash = program.view().rfind('/');
    const auto shortName = slash == std::string_view::npos ? program.view() : program.view().substr(slash + 1);
    std::printf("Usage: %.*s [OPTION]...%s%s\n", static_cast<int>(shortName.size()), shortName.data(),
        options.usage.empty() ? "" : " ", options.usage.c_str());
    if (!options.description.empty()) std::printf("%s\n", options.description.c_str());
    std::fputs(ownOptions, stdout);
}

void printVersion(const ApplicationOptions& options)
{
    const auto identity = options.identity();
    std::printf("%s %s\n", identity.name.c_str(), identity.version.c_str());
}

std::optional<int> priorityOf(std::string_view text)
{
    bool isNumber = false;
    const auto priority = fn::String(text).toInt(0, 10, &isNumber);
    return isNumber && priority >= 0 && priority <= mostDetailed ? std::optional(priority) : std::nullopt;
}

} // namespace

CommandLine CommandLine::parse(std::span<const char* const> arguments, const ApplicationOptions& options)
{
    constexpr std::string_view log = "--log";
    CommandLine line;
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const std::string_view argument = arguments[i];
        if (argument == "--") {
            line.arguments.insert(
                line.arguments.end(), arguments.begin() + static_cast<std::ptrdiff_t>(i) + 1, arguments.end());
            break;
        }
        if (argument == "--help" || argument == "-h") {
            printHelp(arguments, options);
            line.exitCode = 0;
        } else if (argument == "--version") {
            printVersion(options);
            line.exitCode = 0;
        } else if (argument == "--verbose") {
            line.isVerbose = true;
        } else if (argument == log || (argument.starts_with(log) && argument[log.size()] == '=')) {
            const bool isNext = argument == log;
            const std::string_view value = !isNext ? argument.substr(log.size() + 1)
                : i + 1 < arguments.size()         ? arguments[++i]
                                                   : "";
            line.logPriority = priorityOf(value);
            if (line.logPriority) continue;
            std::fprintf(stderr, "%s: --log takes a priority, 0 to %d, and not \"%.*s\"\n", arguments.front(),
                mostDetailed, static_cast<int>(value.size()), value.data());
            line.exitCode = wrongUsage;
        } else {
            line.arguments.emplace_back(argument);
        }
        if (line.exitCode) break;
    }
    return line;
}

} // namespace ipc
