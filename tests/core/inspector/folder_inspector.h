#pragma once
#include "core/ipc_services/inspector/inspection_result_writer.h"
#include "core/ipc_services/inspector/inspector.h"
#include <map>
#include <vector>

/// Shows folders, and the files of each.
class FolderInspector final : public core::Inspector {
public:
    explicit FolderInspector(const std::map<fn::String, std::vector<fn::String>>& folders) : _folders(folders) { }

    using Inspector::inspect; // The overload for inspectors that need time.
    core::InspectionResult inspect(const fn::Value& action, const fn::Value&) override
    {
        core::InspectionResult result;
        core::InspectionResultWriter writer(result);
        if (action.isNil()) { // The first page.
            for (const auto& [name, files] : _folders) writer.append(name, fn::Value::map({ { "folder", name } }));
            return result;
        }
        const auto folder = _folders.find(action.at("folder").asString());
        if (folder == _folders.end()) {
            result.redirectAction = fn::Value(); // It has gone meanwhile: back to the first page.
            return result;
        }
        for (const auto& name : folder->second) writer.append(name); // These lead nowhere.
        return result;
    }

private:
    const std::map<fn::String, std::vector<fn::String>>& _folders;
};
