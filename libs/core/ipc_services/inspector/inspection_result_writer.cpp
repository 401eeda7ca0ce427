#include "core/ipc_services/inspector/inspection_result_writer.h"

namespace core {

InspectionResultWriter& InspectionResultWriter::append(const fn::String& text, const fn::Value& action)
{
    _result.items.push_back({ text, action });
    return *this;
}

} // namespace core
