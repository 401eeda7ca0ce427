#include "platform/firewall/detail/records_text.h"
#include "foundation/exceptions.h"
#include <glib.h>
#include <memory>

namespace platform::detail {
namespace {

constexpr std::string_view profilesGroup = "Profiles";
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

/// The values of one group.
class Group {
public:
    Group(GKeyFile* file, std::string_view name) : _file(file), _name(name) { }

    void setText(const char* key, const fn::String& value)
    {
        g_key_file_set_string(_file, _name.c_str(), key, value.c_str());
    }
    void setNumber(const char* key, LONG value) { g_key_file_set_integer(_file, _name.c_str(), key, value); }
    void setFlag(const char* key, bool value) { g_key_file_set_boolean(_file, _name.c_str(), key, value); }

    fn::String text(const char* key) const
    {
        GError* error = nullptr;
        const Owned<gchar> value(g_key_file_get_string(_file, _name.c_str(), key, &error));
        requireNoError(error, _name);
        return value.get();
    }
    LONG number(const char* key, bool (*isAllowed)(LONG)) const
    {
        GError* error = nullptr;
        const LONG value = g_key_file_get_integer(_file, _name.c_str(), key, &error);
        requireNoError(error, _name);
        if (!isAllowed(value)) refuse(_name, fmt::format("{} can not be {}", key, value));
        return value;
    }
    bool flag(const char* key) const
    {
        GError* error = nullptr;
        const bool value = g_key_file_get_boolean(_file, _name.c_str(), key, &error);
        requireNoError(error, _name);
        return value;
    }

private:
    GKeyFile* const _file;
    const std::string _name;
};

constexpr bool areCurrentTypes(LONG value) noexcept { return value >= 0 && value <= 7; }

void write(Group group, const ProfileRecord& profiles)
{
    group.setNumber("current", profiles.currentTypes);
    group.setFlag("domain", profiles.isOnForDomain);
    group.setFlag("private", profiles.isOnForPrivate);
    group.setFlag("public", profiles.isOnForPublic);
}

ProfileRecord readProfiles(const Group& group)
{
    return { .currentTypes = group.number("current", areCurrentTypes),
        .isOnForDomain = group.flag("domain"),
        .isOnForPrivate = group.flag("private"),
        .isOnForPublic = group.flag("public") };
}

void write(Group group, const RuleRecord& rule)
{
    group.setText("name", rule.name);
    group.setText("description", rule.description);
    group.setText("applicationName", rule.applicationName);
    group.setNumber("protocol", rule.protocol);
    group.setNumber("profiles", rule.profiles);
    group.setNumber("direction", rule.direction);
    group.setNumber("action", rule.action);
    group.setFlag("enabled", rule.isEnabled);
}

RuleRecord readRule(const Group& group)
{
    return { .name = group.text("name"),
        .description = group.text("description"),
        .applicationName = group.text("applicationName"),
        .protocol = group.number("protocol", isProtocol),
        .profiles = group.number("profiles", areProfiles),
        .direction = static_cast<NET_FW_RULE_DIRECTION>(group.number("direction", isDirection)),
        .action = static_cast<NET_FW_ACTION>(group.number("action", isAction)),
        .isEnabled = group.flag("enabled") };
}

void write(Group group, const ApplicationRecord& application)
{
    group.setText("imageFileName", application.imageFileName);
    group.setText("name", application.name);
    group.setFlag("enabled", application.isEnabled);
}

ApplicationRecord readApplication(const Group& group)
{
    return {
        .imageFileName = group.text("imageFileName"), .name = group.text("name"), .isEnabled = group.flag("enabled")
    };
}

template <typename Record> void writeAll(GKeyFile* file, std::string_view prefix, const std::vector<Record>& records)
{
    for (std::size_t i = 0; i < records.size(); ++i) write(Group(file, fmt::format("{}{}", prefix, i + 1)), records[i]);
}

} // namespace

std::string recordsText(const FirewallRecords& records)
{
    const Owned<GKeyFile> file(g_key_file_new());
    write(Group(file.get(), profilesGroup), records.profiles);
    writeAll(file.get(), rulePrefix, records.rules);
    writeAll(file.get(), applicationPrefix, records.applications);
    g_key_file_set_comment(file.get(), nullptr, nullptr, comment, nullptr);
    gsize size = 0;
    const Owned<gchar> text(g_key_file_to_data(file.get(), &size, nullptr));
    return std::string(text.get(), size);
}

FirewallRecords readRecordsText(std::string_view text)
{
    if (text.find('\0') != text.npos) refuse("", "It contains a 0");
    const Owned<GKeyFile> file(g_key_file_new());
    GError* error = nullptr;
    g_key_file_load_from_data(file.get(), text.data(), text.size(), G_KEY_FILE_NONE, &error);
    requireNoError(error, "");

    FirewallRecords records;
    const Owned<gchar*> names(g_key_file_get_groups(file.get(), nullptr));
    for (auto* name = names.get(); *name; ++name) {
        const std::string_view title(*name);
        const Group group(file.get(), title);
        if (title == profilesGroup)
            records.profiles = readProfiles(group);
        else if (title.starts_with(rulePrefix))
            records.rules.push_back(readRule(group));
        else if (title.starts_with(applicationPrefix))
            records.applications.push_back(readApplication(group));
        else
            refuse(title, "is no group of this file");
    }
    return records;
}

} // namespace platform::detail
