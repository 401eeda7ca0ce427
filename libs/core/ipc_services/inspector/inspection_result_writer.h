#pragma once
#include "core/ipc_services/inspector/inspection_result.h"

namespace core {

/// Appends lines to a result, which it borrows: `InspectionResultWriter(result).append("a").append("b", 7)`.
class FN_EXPORT InspectionResultWriter {
public:
    /// Adds to `result`, which it borrows.
    explicit InspectionResultWriter(InspectionResult& result) : _result(result) { }

    /// A nil action makes a line that leads nowhere.
    InspectionResultWriter& append(const fn::String& text, const fn::Value& action = {});

private:
    InspectionResult& _result;
};

} // namespace core
