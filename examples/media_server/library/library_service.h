#pragma once
#include "core/ipc/object/callable_object_instance.h"
#include "core/ipc_services/inspector/inspection_result_writer.h"
#include "library/catalogue_lock.h"
#include "library/media_library.h"
#include <memory>

namespace media {

/// The instance of the library. `Library` documents its methods.
class LibraryService final : public ipc::CallableObjectInstance {
public:
    explicit LibraryService(ipc::Worker& worker);
    ~LibraryService() override;

    /// Shows the contents of the catalogue, by folder.
    void inspect(const fn::Value& action, core::InspectionResultWriter& page);

private:
    void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument) override;
    fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override;

    fn::Value compare(const fn::Value& argument);
    fn::Value store(const fn::Value& argument);
    void open(const CallContext& context, const fn::String& dataFolder);
    void openOnceFree(const CallContext& context, const fn::String& dataFolder, int attemptsLeft);
    MediaLibrary& catalogue();

    fn::String _dataFolder;
    std::unique_ptr<CatalogueLock> _lock;
    std::unique_ptr<MediaLibrary> _catalogue; // Null until opened. Destroyed before its lock.
    fn::Handle _nextAttempt; // The timer of the next attempt to take the lock.
};

} // namespace media
