#include "inspector_web/error_page.h"
#include "api/text.h"
#include "base/exceptions.h"
#include "core/ipc/object/object_dead_exception.h"
#include "inspector_web/html_page.h"

namespace media {

WebAnswer errorPage(int status, std::string_view text)
{
    HtmlPage page("No page");
    page.navigate("All inspectors", "./");
    page.paragraph(text);
    return { status, std::move(page).finish() };
}

WebAnswer errorPage(std::exception_ptr failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (const ipc::ObjectDeadException&) {
        return errorPage(502, "The process of this inspector has ended.");
    } catch (const fn::OperationTimedOutException&) {
        return errorPage(504, "The inspector does not answer.");
    } catch (...) {
        return errorPage(502, "The inspector fails: " + describe(failure));
    }
}

} // namespace media
