#pragma once
#include "api/library.h"
#include "core/ipc/interface/service.h"
#include "core/ipc_services/inspector/inspection_result_writer.h"
#include "library/catalogue_lock.h"
#include "library/media_library.h"
#include <memory>

namespace media {

class LibraryService final : public ipc::Service<LibraryService, Library> {
public:
    using Service::Service;

    fn::Promise<void> open(fn::String dataFolder);
    ScanId beginScan(const fn::String& folder) { return catalogue().beginScan(folder); }
    std::vector<std::size_t> compare(const FoundFiles& found);
    void store(const ScannedFiles& scanned);
    Totals finishScan(const ScanId& scan) { return catalogue().finishScan(scan); }

    /// Shows the contents of the catalogue, by folder.
    void inspect(const fn::Value& action, core::InspectionResultWriter& page);

private:
    MediaLibrary& catalogue();

    fn::String _dataFolder;
    std::unique_ptr<CatalogueLock> _lock;
    std::unique_ptr<MediaLibrary> _catalogue; // Null until opened. Destroyed before its lock.
};

} // namespace media
