#include "platform/firewall/detail/records_text.h"
#include "base/exceptions.h"
#include <glib.h>
#include <memory>

namespace platform::detail {
namespace {

constexpr const char* profilesGroup = "Profiles";
constexpr std::string_view rulePrefix = "Rule ";
constexpr std::string_view applicationPrefix = "Application ";
constexpr const char* comment = " What programs have asked a firewall to do. No packet filter reads this file.";

struct Free {
    void operator()(GKeyFile* file) const { g_key_file_free(file); }
    void operator()(GError* error) const { g_error_free(error); }
    void operator()(gchar* text) const { g_free(text); }
    void operator()(gchar** texts) const { g_strfreev(texts); }
};
template <typename T> using Owned = std::unique_ptr<T, Free>;

[[noreturn]] void refuse(std::string_view group, std::string_view problem)
{
    throw fn::DataFormatException(fmt::format("The firewall rules are damaged: [{}] {}", group, problem));
}

void requireNoError(GError* error, std::string_view group)
{
    if (!error) return;
    const Owned<GError> owned(error);
    refuse(group, owned->message);
}

/// Calls `group` with each value of a record, its key in the file and, for a number, its bounds.
void visit(ProfileRecord& profiles, auto&& group)
{
    group("current", profiles.currentTypes, 0, 7);
    group("domain", profiles.isOnForDomain);
    group("private", profiles.isOnForPrivate);
    group("public", profiles.isOnForPublic);
}

void visit(RuleRecord& rule, auto&& group)
{
    group("name", rule.name);
    group("description", rule.description);
    group("applicationName", rule.applicationName);
    group("protocol", rule.protocol, 0, NET_FW_IP_PROTOCOL_ANY);
    group("profiles", rule.profiles, 1, NET_FW_PROFILE2_ALL);
    group("direction", rule.direction, NET_FW_RULE_DIR_IN, NET_FW_RULE_DIR_OUT);
    group("action", rule.action, NET_FW_ACTION_BLOCK, NET_FW_ACTION_ALLOW);
    group("enabled", rule.isEnabled);
}

void visit(ApplicationRecord& application, auto&& group)
{
    group("imageFileName", application.imageFileName);
    group("name", application.name);
    group("enabled", application.isEnabled);
}

struct WrittenGroup {
    GKeyFile* file;
    std::string name;

    void operator()(const char* key, fn::String& text) { g_key_file_set_string(file, name.c_str(), key, text.c_str()); }
    void operator()(const char* key, bool& flag) { g_key_file_set_boolean(file, name.c_str(), key, flag); }
    void operator()(const char* key, LONG& number, LONG, LONG)
    {
        g_key_file_set_integer(file, name.c_str(), key, number);
    }
};

struct ReadGroup {
    GKeyFile* file;
    const char* name;

    void operator()(const char* key, fn::String& text) const
    {
        GError* error = nullptr;
        const Owned<gchar> value(g_key_file_get_string(file, name, key, &error)); // May hold a text also on an error.
        requireNoError(error, name);
        text = value.get();
    }
    void operator()(const char* key, bool& flag) const { flag = read(g_key_file_get_boolean, key); }
    void operator()(const char* key, LONG& number, LONG least, LONG most) const
    {
        number = read(g_key_file_get_integer, key);
        if (number < least || number > most) refuse(name, fmt::format("{} can not be {}", key, number));
    }

private:
    template <typename T>
    T read(T (*get)(GKeyFile*, const gchar* group, const gchar* key, GError**), const char* key) const
    {
        GError* error = nullptr;
        const T value = get(file, name, key, &error);
        requireNoError(error, name);
        return value;
    }
};

template <typename Record> void writeAll(GKeyFile* file, std::string_view prefix, std::vector<Record>& records)
{
    int number = 0;
    for (auto& record : records) visit(record, WrittenGroup { file, fmt::format("{}{}", prefix, ++number) });
}

} // namespace

std::string recordsText(FirewallRecords records)
{
    const Owned<GKeyFile> file(g_key_file_new());
    visit(records.profiles, WrittenGroup { file.get(), profilesGroup });
    writeAll(file.get(), rulePrefix, records.rules);
    writeAll(file.get(), applicationPrefix, records.applications);
    g_key_file_set_comment(file.get(), nullptr, nullptr, comment, nullptr);
    gsize size = 0;
    const Owned<gchar> text(g_key_file_to_data(file.get(), &size, nullptr));
    return std::string(text.get(), size);
}

FirewallRecords readRecordsText(std::string_view text)
{
    if (text.contains('\0')) refuse("", "It contains a 0");
    const Owned<GKeyFile> file(g_key_file_new());
    GError* error = nullptr;
    g_key_file_load_from_data(file.get(), text.data(), text.size(), G_KEY_FILE_NONE, &error);
    requireNoError(error, "");

    FirewallRecords records;
    const Owned<gchar*> names(g_key_file_get_groups(file.get(), nullptr));
    for (auto* name = names.get(); *name; ++name) {
        const std::string_view title(*name);
        const ReadGroup group { file.get(), *name };
        if (title == profilesGroup)
            visit(records.profiles, group);
        else if (title.starts_with(rulePrefix))
            visit(records.rules.emplace_back(), group);
        else if (title.starts_with(applicationPrefix))
            visit(records.applications.emplace_back(), group);
        else
            refuse(title, "is no group of this file");
    }
    return records;
}

} // namespace platform::detail
