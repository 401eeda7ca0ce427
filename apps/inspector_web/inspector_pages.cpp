#include "inspector_web/inspector_pages.h"
#include "base/exceptions.h"
#include "core/ipc/object/object_dead_exception.h"
#include "core/ipc/registry.h"
#include "foundation/coroutine/sleep.h"
#include "inspector_web/action_text.h"
#include "inspector_web/html_page.h"
#include <algorithm>
#include <fmt/format.h>
#include <vector>

namespace inspector_web {
namespace {

constexpr std::string_view unnamed = "(no name)";

/// The page of an inspector that an address names.
struct Place {
    fn::String key;
    fn::Value action;
    std::optional<fn::Value> from; // The action of the page whose line was followed.
};

/// Empty if the address is damaged.
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

/// Empty if one of the actions has no text.
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

/// Writes as many entries as the page takes, and how many are left.
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
    byName.reserve(inspectors.size());
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

std::string inspectorPage(const fn::String& name, Place place, const core::OpenedPage& opened)
{
    place.action = opened.action; // The action to which redirections have led.
    HtmlPage page(name.empty() ? unnamed : name.view());
    page.navigate("All inspectors", "./");
    if (place.from) page.navigate("Back", addressOf({ place.key, *place.from, {} }));
    if (const auto own = addressOf(place); !own.empty()) page.navigate("Reload", own);
    const auto& items = opened.items;
    if (items.empty()) page.paragraph("Nothing to show.");
    writeLines(page, items, [&](const core::Item& item) {
        const bool leadsOn = !item.action.isNil();
        page.line(item.text.view(), leadsOn ? addressOf({ place.key, item.action, opened.action }) : std::string());
    });
    return std::move(page).finish();
}

/// Tells people what is wrong, with a way back to the list.
WebAnswer errorPage(int status, std::string_view text)
{
    HtmlPage page("No page");
    page.navigate("All inspectors", "./");
    page.paragraph(text);
    return { status, std::move(page).finish() };
}

} // namespace

InspectorPages::InspectorPages(ipc::Worker& worker) : _worker(worker) { }

fn::Promise<WebAnswer> InspectorPages::answer(WebRequest request)
{
    try {
        auto answer = co_await fn::withTimeout(page(request), mostTime);
        co_return answer;
    } catch (const ipc::ObjectDeadException&) {
        co_return errorPage(502, "The process of this inspector has ended.");
    } catch (const fn::OperationTimedOutException&) {
        co_return errorPage(504, "The inspector does not answer.");
    } catch (const std::exception& exception) {
        co_return errorPage(502, fmt::format("The inspector fails: {}", exception.what()));
    }
}

fn::Promise<WebAnswer> InspectorPages::page(WebRequest& request)
{
    const bool isList = request.path.empty();
    if (!isList && request.path != "inspector") co_return errorPage(404, "There is no such page.");
    const auto place = placeFrom(request);
    if (!place) co_return errorPage(400, "The address is damaged.");
    if (!_service) _service = co_await _worker.registry()->getInstance<core::InspectorRegistry>(mostTime);
    auto names = co_await _service->allInspectors();
    if (isList) co_return WebAnswer { 200, listPage(names) };
    const auto inspector = co_await _service->getInspector(place->key);
    if (!inspector) co_return errorPage(404, "There is no such inspector, or not any more.");
    const auto opened = co_await inspector->open(place->action, place->from.value_or(fn::Value()));
    co_return WebAnswer { 200, inspectorPage(names[place->key], *place, opened) };
}

} // namespace inspector_web
