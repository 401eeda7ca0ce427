#include "core/ipc_services/inspector/inspection_result.h"
#include <algorithm>
#include <iterator>

namespace core {
namespace {

constexpr const char* actionKey = "action";
constexpr const char* itemsKey = "items";
constexpr const char* redirectActionKey = "redirectAction";
constexpr const char* textKey = "text";

fn::Value serializeItem(const Item& item)
{
    if (item.action.isNil()) return item.text;
    return fn::Value::map({ { actionKey, item.action }, { textKey, item.text } });
}

Item deserializeItem(const fn::Value& value)
{
    if (value.isString()) return { value.string(), {} };
    return { value.get(textKey).asString(), value.get(actionKey) }; // Both are empty if the value is no map.
}

} // namespace

fn::Value InspectionResult::serialize() const
{
    if (redirectAction) return fn::Value::map({ { redirectActionKey, *redirectAction } });
    fn::Value::Array lines;
    lines.reserve(items.size());
    std::ranges::transform(items, std::back_inserter(lines), serializeItem);
    return fn::Value::map({ { itemsKey, std::move(lines) } });
}

InspectionResult InspectionResult::deserialize(const fn::Value& value)
{
    InspectionResult result;
    if (const auto* redirect = value.find(redirectActionKey)) {
        result.redirectAction = *redirect;
        return result;
    }
    const auto& lines = value.get(itemsKey);
    if (!lines.isArray()) return result;
    result.items.reserve(lines.size());
    std::ranges::transform(lines.elements(), std::back_inserter(result.items), deserializeItem);
    return result;
}

} // namespace core
