#pragma once
#include <string>
#include <string_view>

namespace inspector_web {

/// One page, written from top to bottom. Its methods take texts and addresses, never HTML. Long text is cut.
class HtmlPage {
public:
    static constexpr std::size_t mostTextBytes = 16 * 1024; ///< Of one line, before it is escaped.
    static constexpr std::size_t mostPageBytes = 2 * 1024 * 1024; ///< A page ends with the line that exceeds this.

    explicit HtmlPage(std::string_view title); ///< The title of the window, and the heading.

    void navigate(std::string_view text, std::string_view address); ///< Adds a link; before the page's content.
    void paragraph(std::string_view text);
    void line(
        std::string_view text, std::string_view address = {}); ///< Of one list. Without an address it leads nowhere.

    bool isFull() const; ///< Whether the page is so long that no more lines should be added.
    std::string finish() &&;

    /// The value of Content-Security-Policy under which the page works: nothing but its own style.
    static const std::string& contentSecurityPolicy();

private:
    enum class Part { Navigation, Content, List };
    void enter(Part part);
    void link(std::string_view text, std::string_view address);

    std::string _html;
    Part _part = Part::Content;
};

} // namespace inspector_web
