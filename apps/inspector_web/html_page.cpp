#include "inspector_web/html_page.h"
#include "base/byte_array.h"
#include <glib.h>
#include <memory>

namespace inspector_web {
namespace {

constexpr std::string_view style = R"(
:root { color-scheme: light dark; font: 15px/1.5 system-ui, sans-serif; }
body { margin: 0 auto; padding: 1.5rem; max-width: 75rem; }
h1 { margin: .5rem 0 1rem; font-size: 1.4rem; overflow-wrap: anywhere; }
nav { margin-bottom: 1rem; }
nav a { margin-right: 1rem; }
ul { margin: 0; padding: 0; list-style: none; border-top: 1px solid #8884; }
li { padding: .3rem .5rem; border-bottom: 1px solid #8884; white-space: pre-wrap; overflow-wrap: anywhere;
  unicode-bidi: isolate; font-variant-numeric: tabular-nums; }
a { color: LinkText; }
a:focus-visible { outline: 2px solid; outline-offset: 2px; }
)";

/// The text that stands for a character in HTML; null for a character that stands for itself.
const char* replacement(char character)
{
    switch (character) {
    case '&': return "&amp;";
    case '<': return "&lt;";
    case '>': return "&gt;";
    case '"': return "&quot;";
    case '\'': return "&#39;";
    case '\t':
    case '\n': return nullptr;
    default: return static_cast<unsigned char>(character) < 0x20 || character == 0x7f ? "\ufffd" : nullptr;
    }
}

/// Text from anywhere in the form for HTML elements and attributes. Bytes that are no UTF-8, and characters that HTML must not
/// hold, become the replacement character. Long text is cut.
std::string shown(std::string_view text)
{
    const auto cut = text.substr(0, HtmlPage::mostTextBytes);
    const std::unique_ptr<char, void (*)(void*)> valid(
        g_utf8_make_valid(cut.data(), static_cast<gssize>(cut.size())), g_free);
    std::string result;
    for (const char* at = valid.get(); *at != '\0'; ++at) {
        if (const char* name = replacement(*at))
            result += name;
        else
            result += *at;
    }
    if (cut.size() < text.size()) result += " ...";
    return result;
}

} // namespace

HtmlPage::HtmlPage(std::string_view title)
{
    const auto heading = shown(title);
    _html = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
            "<meta name=\"viewport\" content=\"width=device-width\">\n<title>";
    _html += heading;
    _html += "</title>\n<style>";
    _html += style;
    _html += "</style>\n</head>\n<body>\n<main>\n<h1>";
    _html += heading;
    _html += "</h1>\n";
}

void HtmlPage::enter(Part part)
{
    if (part == _part) return;
    if (_part == Part::Navigation) _html += "</nav>\n";
    if (_part == Part::List) _html += "</ul>\n";
    if (part == Part::Navigation) _html += "<nav>\n";
    if (part == Part::List) _html += "<ul>\n";
    _part = part;
}

void HtmlPage::link(std::string_view text, std::string_view address)
{
    _html += "<a href=\"" + shown(address) + "\">" + shown(text) + "</a>";
}

void HtmlPage::navigate(std::string_view text, std::string_view address)
{
    enter(Part::Navigation);
    link(text, address);
    _html += '\n';
}

void HtmlPage::paragraph(std::string_view text)
{
    enter(Part::Content);
    _html += "<p>" + shown(text) + "</p>\n";
}

void HtmlPage::line(std::string_view text, std::string_view address)
{
    enter(Part::List);
    _html += "<li>";
    if (address.empty()) {
        _html += shown(text);
    } else {
        link(text, address);
    }
    _html += "</li>\n";
}

bool HtmlPage::isFull() const { return _html.size() >= mostPageBytes; }

std::string HtmlPage::finish() &&
{
    enter(Part::Content);
    _html += "</main>\n</body>\n</html>\n";
    return std::move(_html);
}

const std::string& HtmlPage::contentSecurityPolicy()
{
    static const auto policy = "default-src 'none'; style-src 'sha256-"
        + std::string(fn::ByteArray(style).SHA256().base64().view())
        + "'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";
    return policy;
}

} // namespace inspector_web
