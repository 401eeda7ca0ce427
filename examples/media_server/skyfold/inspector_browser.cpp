#include "skyfold/inspector_browser.h"
#include "api/text.h"
#include "base/exceptions.h"
#include "core/ipc/registry.h"
#include "skyfold/read_line.h"
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <fmt/format.h>
#include <unistd.h>

namespace media {
namespace {

constexpr auto findTimeout = fn::Duration::seconds(20);

constexpr const char* help =
    "NUMBER follows a link, b goes back, r shows the page again, l lists the inspectors, q quits.";

void say(const std::string& text)
{
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
}

} // namespace

InspectorBrowser::InspectorBrowser(ipc::Worker& worker) : _worker(worker), _isTerminal(::isatty(STDIN_FILENO)) { }

fn::Promise<void> InspectorBrowser::run()
{
    if (_isTerminal) say(help);
    do {
        try {
            auto shown = _trail.back().key.empty() ? showList() : showPage();
            co_await std::move(shown);
        } catch (...) {
            _links.clear();
            say(describe(std::current_exception()));
        }
    } while (co_await ask());
}

/// Takes commands until there is a page to show; false if the user quits.
fn::Promise<bool> InspectorBrowser::ask()
{
    for (;;) {
        if (_isTerminal) {
            std::fputs("> ", stdout);
            std::fflush(stdout);
        }
        const auto line = co_await readLine();
        if (!line || *line == "q") co_return false;
        if (follow(*line)) co_return true;
        say(help);
    }
}

/// Finds the page to show; false for what is no command.
bool InspectorBrowser::follow(const std::string& command)
{
    const auto* const last = command.data() + command.size();
    std::size_t number = 0;
    const auto [end, error] = std::from_chars(command.data(), last, number);
    if (command == "l")
        _trail.emplace_back();
    else if (command == "b" && _trail.size() > 1)
        _trail.pop_back();
    else if (command == "b" || command == "r" || command.empty())
        return true;
    else if (error == std::errc() && end == last && number >= 1 && number <= _links.size())
        _trail.push_back(_links[number - 1]);
    else
        return false;
    return true;
}

// --- Pages

fn::Promise<void> InspectorBrowser::showList()
{
    if (!_inspectors) _inspectors = co_await _worker.registry()->getInstance<core::InspectorRegistry>(findTimeout);
    const auto inspectors = co_await _inspectors->allInspectors();
    _links.clear();
    for (const auto& [key, name] : inspectors) _links.push_back({ key, printable(name), {}, {} });
    std::ranges::sort(_links, {}, &Place::title);
    say("\nInspectors");
    for (std::size_t i = 0; i < _links.size(); ++i) say(fmt::format("{:4}  {}", i + 1, _links[i].title));
}

fn::Promise<void> InspectorBrowser::showPage()
{
    auto& place = _trail.back();
    const auto inspector = co_await _inspectors->getInspector(place.key);
    if (!inspector) throw fn::RuntimeException("This inspector has gone", fn::Exception::StackTrace::None);
    const auto page = co_await inspector->open(place.action, place.referer);
    place.action = page.action;
    print(place, page.items);
}

void InspectorBrowser::print(const Place& place, const std::vector<core::Item>& items)
{
    _links.clear();
    say("\n" + place.title);
    for (const auto& item : items) {
        const auto text = printable(item.text);
        if (item.action.isNil()) {
            say("      " + text);
        } else {
            _links.push_back({ place.key, place.title, item.action, place.action });
            say(fmt::format("{:4}  {}", _links.size(), text));
        }
    }
}

} // namespace media
