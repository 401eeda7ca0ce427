#include "core/simulation/decisions.h"
#include "base/string.h"
#include <algorithm>
#include <charconv>
#include <fmt/format.h>

namespace core::simulation {
namespace {

constexpr std::array<std::string_view, choices> names { "schedule", "bytes", "fault", "load" };

// The output function of SplitMix64.
std::uint64_t mix(std::uint64_t state) noexcept
{
    state = (state ^ (state >> 30)) * 0xbf58476d1ce4e5b9U;
    state = (state ^ (state >> 27)) * 0x94d049bb133111ebU;
    return state ^ (state >> 31);
}

std::uint32_t numberFrom(std::string_view text)
{
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc() && end == text.data() + text.size()) return number;
    throw fn::DataFormatException(fmt::format("A story holds numbers, not \"{}\"", text));
}

/// Takes the first word from `text`, up to a blank.
std::string_view takeWord(std::string_view& text)
{
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    const auto word = text.substr(0, text.find(' '));
    text.remove_prefix(word.size());
    return word;
}

void readDecisions(std::string_view text, std::vector<std::uint32_t>& decisions)
{
    constexpr std::uint32_t mostZeros = 100'000'000;
    for (auto word = takeWord(text); !word.empty(); word = takeWord(text)) {
        if (!word.starts_with("0*")) {
            decisions.push_back(numberFrom(word));
            continue;
        }
        const auto zeros = numberFrom(word.substr(2));
        if (zeros > mostZeros) throw fn::DataFormatException("A story has too many zeros");
        decisions.insert(decisions.end(), zeros, 0);
    }
}

std::string textOf(const std::vector<std::uint32_t>& decisions)
{
    std::string text;
    for (std::size_t i = 0; i < decisions.size();) {
        auto end = i;
        while (end < decisions.size() && decisions[end] == 0) ++end;
        if (end - i > 1) {
            text += fmt::format(" 0*{}", end - i);
            i = end;
        } else {
            text += fmt::format(" {}", decisions[i++]);
        }
    }
    return text;
}

} // namespace

Decisions::Decisions(std::uint64_t seed) : _isRepeating(false)
{
    for (std::size_t kind = 0; kind < choices; ++kind) _states[kind] = mix(seed * choices + kind + 1);
}

Decisions::Decisions(Story story) : _isRepeating(true), _given(std::move(story)) { }

std::uint64_t Decisions::next(std::size_t kind) noexcept { return mix(_states[kind] += 0x9e3779b97f4a7c15U); }

std::uint32_t Decisions::choose(Choice choice, std::uint32_t count)
{
    if (count <= 1) return 0;
    const auto kind = static_cast<std::size_t>(choice);
    auto& made = _made[kind];
    std::uint32_t decision = 0;
    if (!_isRepeating)
        decision = static_cast<std::uint32_t>(((next(kind) >> 32) * count) >> 32);
    else if (made.size() < _given[kind].size())
        decision = _given[kind][made.size()] % count; // A changed program may ask for smaller numbers.
    made.push_back(decision);
    if (!_journal.empty() && _journal[0] + 1 < _journal.size())
        _journal[++_journal[0]] = std::uint64_t(kind) << 32 | decision;
    return decision;
}

Decisions::Story Decisions::fromJournal(std::span<const std::uint64_t> journal)
{
    Story story;
    for (const auto entry : journal.subspan(1, journal[0]))
        story.at(entry >> 32).push_back(static_cast<std::uint32_t>(entry));
    return story;
}

std::string Decisions::toText(const Story& story)
{
    std::string text;
    for (std::size_t kind = 0; kind < choices; ++kind) text += fmt::format("{}{}\n", names[kind], textOf(story[kind]));
    return text;
}

Decisions::Story Decisions::fromText(std::string_view text)
{
    Story story;
    while (!text.empty()) {
        auto line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (line.empty() || line.starts_with('#')) continue;
        const auto name = takeWord(line);
        const auto kind = std::ranges::find(names, name);
        if (kind == names.end()) throw fn::DataFormatException(fmt::format("\"{}\" is no kind of decision", name));
        readDecisions(line, story[static_cast<std::size_t>(kind - names.begin())]);
    }
    return story;
}

} // namespace core::simulation
