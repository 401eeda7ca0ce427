#include "inspector_web/inspector_pages.h"
#include "inspector_web/action_text.h"
#include "inspector_web/error_page.h"
#include "inspector_web/html_page.h"
#include <algorithm>
#include <fmt/format.h>
#include <vector>

namespace media {
namespace {

constexpr std::string_view unnamed = "(no name)";

/// What an address says about one page of an inspector.
struct Place {
    fn::String key;
    fn::Value action;
    std::optional<fn::Value> from; // The action of the page whose line was followed.
};

/// Empty where the address is damaged.
std::optional<Place> placeFrom(const WebRequest& request)
{
    Place place;
    for (const auto& [name, text] : request.parameters) {
        if (name == "key") place.key = text;
        if (name != "action" && name != "from") continue;
        auto action = actionFromText(text);
        if (!action) return std::nullopt;
        if (name == "action")
            place.action = std::move(*action);
        else
            place.from = std::move(*action);
    }
    return place;
}

/// Empty where one of the actions cannot be written down.
std::string addressOf(const Place& place)
{
    auto address = "inspector?key=" + queryText(place.key.view());
    const auto append = [&](const char* name, const fn::Value& action) {
        const auto text = actionText(action);
        if (!text) return false;
        address += fmt::format("&{}={}", name, *text);
        return true;
    };
    if (!place.action.isNil() && !append("action", place.action)) return {};
    if (place.from && !append("from", *place.from)) return {};
    return address;
}

/// As many as the page takes, and how many are left.
template <typename Entry, typename Write>
void writeLines(HtmlPage& page, const std::vector<Entry>& entries, Write write)
{
    auto left = entries.size();
    for (const auto& entry : entries) {
        if (page.isFull()) break;
        write(entry);
        --left;
    }
    if (left > 0) page.paragraph(fmt::format("And {} more.", left));
}

std::string listPage(const std::map<fn::String, fn::String>& inspectors)
{
    std::vector<std::pair<fn::String, fn::String>> byName;
    for (const auto& [key, name] : inspectors) byName.emplace_back(name, key);
    std::ranges::sort(byName);
    HtmlPage page("Inspectors");
    page.navigate("Reload", "./");
    if (byName.empty()) page.paragraph("There are none.");
    writeLines(page, byName, [&](const auto& inspector) {
        const auto& [name, key] = inspector;
        page.line(name.empty() ? unnamed : name.view(), addressOf({ key, {}, {} }));
    });
    return std::move(page).finish();
}

std::string inspectorPage(const fn::String& name, Place place, const InspectedPage& inspected)
{
    place.action = inspected.action; // Where redirections have led.
    HtmlPage page(name.empty() ? unnamed : name.view());
    page.navigate("All inspectors", "./");
    if (place.from) page.navigate("Back", addressOf({ place.key, *place.from, {} }));
    if (const auto own = addressOf(place); !own.empty()) page.navigate("Reload", own);
    const auto& items = inspected.result.items;
    if (items.empty()) page.paragraph("Nothing to show.");
    writeLines(page, items, [&](const core::Item& item) {
        const bool leadsOn = !item.action.isNil();
        page.line(item.text.view(), leadsOn ? addressOf({ place.key, item.action, inspected.action }) : std::string());
    });
    return std::move(page).finish();
}

WebAnswer unknownInspector() { return errorPage(404, "There is no such inspector, or not any more."); }

} // namespace

InspectorPages::InspectorPages(ipc::Worker& worker) : _worker(worker) { }
InspectorPages::~InspectorPages() = default;

fn::Promise<WebAnswer> InspectorPages::answer(const WebRequest& request) { return bounded(page(request)); }

fn::Promise<WebAnswer> InspectorPages::page(const WebRequest& request)
{
    if (request.path.empty()) return list();
    if (request.path == "inspector") return inspector(request);
    return fn::Promise<WebAnswer>::fulfilled(errorPage(404, "There is no such page."));
}

fn::Promise<WebAnswer> InspectorPages::list()
{
    return service()
        .then([](Service&& service) { return service->allInspectors(); })
        .then([](std::map<fn::String, fn::String>&& inspectors) {
            return WebAnswer { 200, listPage(inspectors) };
        });
}

fn::Promise<WebAnswer> InspectorPages::inspector(const WebRequest& request)
{
    auto asked = placeFrom(request);
    if (!asked) return fn::Promise<WebAnswer>::fulfilled(errorPage(400, "The address is damaged."));
    const auto name = std::make_shared<fn::String>();
    return service()
        .then([](Service&& service) { return service->allInspectors(); })
        .then([self = fn::AutoPtr(this), key = asked->key, name](std::map<fn::String, fn::String>&& inspectors) {
            if (const auto found = inspectors.find(key); found != inspectors.end()) *name = found->second;
            return self->_service->getInspector(key);
        })
        .then([place = std::move(*asked), name](fn::AutoPtr<core::InspectorReference>&& inspector) {
            if (!inspector) return fn::Promise<WebAnswer>::fulfilled(unknownInspector());
            return inspect(inspector, place.action, place.from.value_or(fn::Value()))
                .then([place, name](InspectedPage&& page) {
                    return WebAnswer { 200, inspectorPage(*name, place, page) };
                });
        });
}

fn::Promise<InspectorPages::Service> InspectorPages::service()
{
    if (_service) return fn::Promise<Service>::fulfilled(_service);
    return findInspectors(_worker).then([self = fn::AutoPtr(this)](Service&& service) {
        self->_service = service;
        return std::move(service);
    });
}

fn::Promise<WebAnswer> InspectorPages::bounded(const fn::Promise<WebAnswer>& work)
{
    const auto result = fn::Promise<WebAnswer>::create();
    const auto timer = std::make_shared<fn::Handle>();
    const auto answered = work.then([result, timer](WebAnswer&& answer) { result.fulfill(std::move(answer)); },
        [result, timer](std::exception_ptr failure) { result.fulfill(errorPage(failure)); });
    *timer = _worker.loop().schedule(mostTime, [answered, result] {
        result.fulfill(errorPage(504, "The inspector does not answer."));
        answered.cancel();
    });
    return result;
}

} // namespace media
