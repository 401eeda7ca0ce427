#include "api/inspector_browser.h"
#include "api/text.h"
#include "base/exceptions.h"
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <fmt/format.h>
#include <unistd.h>

namespace media {
namespace {

constexpr const char* help =
    "NUMBER follows a link, b goes back, r shows the page again, l lists the inspectors, q quits.";

} // namespace

InspectorBrowser::InspectorBrowser(ipc::Worker& worker, folly::Function<void()> onQuit)
    : _worker(worker),
      _onQuit(std::move(onQuit))
{
}

InspectorBrowser::~InspectorBrowser() = default;

void InspectorBrowser::start()
{
    _reader =
        std::make_unique<LineReader>(_worker.loop(), [self = fn::WeakPtr(this)](std::optional<std::string>&& line) {
            if (const auto browser = self.lock()) browser->onLine(std::move(line));
        });
    if (::isatty(STDIN_FILENO)) say(help);
    visit({});
}

void InspectorBrowser::stop()
{
    _stopped = true;
    _reader.reset();
    if (_isBusy) _work.cancel();
}

// --- Commands

void InspectorBrowser::onLine(std::optional<std::string>&& line)
{
    _lines.push_back(std::move(line));
    work();
}

/// One command after the other, each when the page before it is there.
void InspectorBrowser::work()
{
    while (!_stopped && !_isBusy && !_lines.empty()) {
        const auto line = std::move(_lines.front());
        _lines.pop_front();
        obey(line.value_or("q"));
    }
}

void InspectorBrowser::obey(const std::string& command)
{
    if (command == "q") {
        stop();
        return _onQuit();
    }
    if (command == "l") return visit({});
    if (command == "b" && _trail.size() > 1) _trail.pop_back();
    if (command == "b" || command == "r" || command.empty()) return show();
    std::size_t number = 0;
    const auto [end, error] = std::from_chars(command.data(), command.data() + command.size(), number);
    if (error == std::errc() && end == command.data() + command.size() && number >= 1 && number <= _links.size())
        return visit(_links[number - 1]);
    say(help);
    prompt();
}

void InspectorBrowser::visit(Place place)
{
    _trail.push_back(std::move(place));
    show();
}

// --- Pages

void InspectorBrowser::show()
{
    _isBusy = true;
    _work = (_trail.back().key.empty() ? showList() : showPage())
                .then([] {},
                    [self = fn::AutoPtr(this)](std::exception_ptr failure) {
                        self->_links.clear();
                        self->say(describe(failure));
                    })
                .then([self = fn::AutoPtr(this)] {
                    self->_isBusy = false;
                    self->prompt();
                    self->work();
                });
}

fn::Promise<void> InspectorBrowser::showList()
{
    const fn::AutoPtr self(this);
    const auto found = _inspectors ? fn::Promise<fn::AutoPtr<core::InspectorRegistry>>::fulfilled(_inspectors)
                                   : findInspectors(_worker);
    return found
        .then([self](fn::AutoPtr<core::InspectorRegistry>&& inspectors) {
            self->_inspectors = inspectors;
            return inspectors->allInspectors();
        })
        .then([self](std::map<fn::String, fn::String>&& inspectors) {
            self->_links.clear();
            for (const auto& [key, name] : inspectors) self->_links.push_back({ key, printable(name), {}, {} });
            std::ranges::sort(self->_links, {}, &Place::title);
            self->say("\nInspectors");
            for (std::size_t i = 0; i < self->_links.size(); ++i)
                self->say(fmt::format("{:4}  {}", i + 1, self->_links[i].title));
        });
}

fn::Promise<void> InspectorBrowser::showPage()
{
    const fn::AutoPtr self(this);
    const auto place = _trail.back();
    return _inspectors->getInspector(place.key)
        .then([place](fn::AutoPtr<core::InspectorReference>&& inspector) {
            if (!inspector) throw fn::RuntimeException("This inspector has gone", fn::Exception::StackTrace::None);
            return inspect(inspector, place.action, place.referer);
        })
        .then([self, place](InspectedPage&& page) {
            auto shown = place;
            shown.action = page.action;
            self->_trail.back() = shown;
            self->print(shown, page.result);
        });
}

void InspectorBrowser::print(const Place& place, const core::InspectionResult& result)
{
    _links.clear();
    say("\n" + place.title);
    for (const auto& item : result.items) {
        const auto text = printable(item.text);
        if (item.action.isNil()) {
            say("      " + text);
        } else {
            _links.push_back({ place.key, place.title, item.action, place.action });
            say(fmt::format("{:4}  {}", _links.size(), text));
        }
    }
}

void InspectorBrowser::prompt()
{
    if (_stopped || !::isatty(STDIN_FILENO)) return;
    std::fputs("> ", stdout);
    std::fflush(stdout);
}

void InspectorBrowser::say(const std::string& text)
{
    if (_stopped) return;
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
}

} // namespace media
