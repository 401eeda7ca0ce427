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

InspectorBrowser::InspectorBrowser(ipc::Worker& worker, folly::Function<void()> onQuit)
    : _worker(worker),
      _onQuit(std::move(onQuit)),
      _isTerminal(::isatty(STDIN_FILENO))
{
}

InspectorBrowser::~InspectorBrowser() = default;

void InspectorBrowser::start()
{
    if (_isTerminal) say(help);
    visit({});
}

void InspectorBrowser::stop()
{
    if (_work) _work.cancel();
}

// --- Commands

void InspectorBrowser::ask()
{
    if (_isTerminal) {
        std::fputs("> ", stdout);
        std::fflush(stdout);
    }
    _work = readLine(_worker.loop()).then([self = fn::AutoPtr(this)](std::optional<std::string>&& line) {
        self->obey(line.value_or("q"));
    });
}

void InspectorBrowser::obey(const std::string& command)
{
    if (command == "q") return _onQuit();
    if (command == "l") return visit({});
    if (command == "b" && _trail.size() > 1) _trail.pop_back();
    if (command == "b" || command == "r" || command.empty()) return show();
    std::size_t number = 0;
    const auto [end, error] = std::from_chars(command.data(), command.data() + command.size(), number);
    if (error == std::errc() && end == command.data() + command.size() && number >= 1 && number <= _links.size())
        return visit(_links[number - 1]);
    say(help);
    ask();
}

void InspectorBrowser::visit(Place place)
{
    _trail.push_back(std::move(place));
    show();
}

// --- Pages

void InspectorBrowser::show()
{
    _work = (_trail.back().key.empty() ? showList() : showPage())
                .then([] {},
                    [self = fn::AutoPtr(this)](std::exception_ptr failure) {
                        self->_links.clear();
                        say(describe(failure));
                    })
                .then([self = fn::AutoPtr(this)] { self->ask(); });
}

fn::Promise<void> InspectorBrowser::showList()
{
    using Inspectors = fn::AutoPtr<core::InspectorRegistry>;
    const fn::AutoPtr self(this);
    const auto found = _inspectors ? fn::Promise<Inspectors>::fulfilled(_inspectors)
                                   : _worker.registry()->getInstance<core::InspectorRegistry>(findTimeout);
    return found
        .then([self](Inspectors&& inspectors) {
            self->_inspectors = inspectors;
            return inspectors->allInspectors();
        })
        .then([self](std::map<fn::String, fn::String>&& inspectors) {
            self->_links.clear();
            for (const auto& [key, name] : inspectors) self->_links.push_back({ key, printable(name), {}, {} });
            std::ranges::sort(self->_links, {}, &Place::title);
            say("\nInspectors");
            for (std::size_t i = 0; i < self->_links.size(); ++i)
                say(fmt::format("{:4}  {}", i + 1, self->_links[i].title));
        });
}

fn::Promise<void> InspectorBrowser::showPage()
{
    const auto place = _trail.back();
    return _inspectors->getInspector(place.key)
        .then([place](fn::AutoPtr<core::InspectorReference>&& inspector) {
            if (!inspector) throw fn::RuntimeException("This inspector has gone", fn::Exception::StackTrace::None);
            return inspector->open(place.action, place.referer);
        })
        .then([self = fn::AutoPtr(this)](core::OpenedPage&& page) {
            self->_trail.back().action = page.action;
            self->print(self->_trail.back(), page.items);
        });
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
