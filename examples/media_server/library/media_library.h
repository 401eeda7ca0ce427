#pragma once
#include "api/scan_types.h"
#include "core/services/data_util.h"
#include <vector>

namespace media {

/// The catalogue: the files in the scanned folders, and the hashes of their contents. Each operation makes its changes in one
/// transaction. Errors: `sqlite::SQLiteException`; a damaged file is removed, so that the next opening starts anew. Belongs to one
/// thread.
class MediaLibrary final : public core::DatabaseAccess {
public:
    explicit MediaLibrary(const fn::String& path);
    ~MediaLibrary() override;

    void open(); ///< Opens the file, or throws why it cannot.
    ScanId beginScan(const fn::String& folder);
    std::vector<std::size_t> compare(const ScanId& scan, const std::vector<FoundFile>& files);
    void store(const ScanId& scan, const std::vector<ScannedFile>& files);
    Totals finishScan(const ScanId& scan);

    Totals totals(const ScanId& scan); ///< Of all files of the scan's folder.

    struct Folder {
        ScanId scan; ///< The latest scan of the folder.
        fn::String path;
        std::int64_t files;
    };
    std::vector<Folder> folders();

private:
    void initSchema() override;
    void onDatabaseReady() override;

    template <typename Work> auto inTransaction(Work work);
    Totals sumUpAll(const ScanId& scan);
    void forgetOthers(const ScanId& scan);
    void sumUp(const ScanId& scan, Totals& totals);
    void sumUpKinds(const ScanId& scan, Totals& totals);
    void nameUnreadable(const ScanId& scan, Totals& totals);
};

} // namespace media
