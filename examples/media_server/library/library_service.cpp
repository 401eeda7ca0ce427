#include "library/library_service.h"
#include "api/text.h"
#include "base/exceptions.h"
#include "foundation/coroutine/sleep.h"
#include "foundation/io/file.h"
#include "foundation/logging/logging.h"
#include <filesystem>
#include <fmt/format.h>

namespace media {
namespace {

// A library that was just killed, or is ending, releases its catalogue in far less than this second.
constexpr int lockAttempts = 20;
constexpr auto lockInterval = fn::Duration::milliseconds(50);

FN_LOG_CATEGORY("mediaServer.library");

void makeFolder(const fn::String& path)
{
    const std::filesystem::path folder(path.view());
    std::error_code error;
    // The catalogue is private: it tells which files the user has.
    if (std::filesystem::create_directories(folder, error)) {
        std::filesystem::permissions(folder, std::filesystem::perms::owner_all, error);
    }
    if (error) fn::File::handleErrno(path, error.value());
}

} // namespace

std::vector<std::size_t> LibraryService::compare(const FoundFiles& found)
{
    auto positions = catalogue().compare(found.scan, found.files);
    FN_LOG(Log, "{} of {} files have changed", positions.size(), found.files.size());
    return positions;
}

void LibraryService::store(const ScannedFiles& scanned)
{
    catalogue().store(scanned.scan, scanned.files);
    FN_LOG(Log, "Stored {} files", scanned.files.size());
}

fn::Promise<void> LibraryService::open(fn::String dataFolder)
{
    if (_catalogue && _dataFolder == dataFolder) co_return;
    FN_LOG(Info, "Opening the catalogue in {}", printable(dataFolder));
    _catalogue.reset();
    _lock.reset();
    makeFolder(dataFolder);
    auto lock = std::make_unique<CatalogueLock>(dataFolder + "/catalogue.lock");
    for (int attempt = 1; !lock->tryLock(); ++attempt) {
        if (attempt > lockAttempts) {
            throw fn::with(
                fn::RuntimeException("The catalogue is in use by another run", fn::Exception::StackTrace::None),
                fn::PathInfo { dataFolder });
        }
        co_await fn::sleep(lockInterval);
    }
    auto catalogue = std::make_unique<MediaLibrary>(dataFolder + "/catalogue.sqlite");
    catalogue->open();
    _dataFolder = dataFolder;
    _catalogue = std::move(catalogue);
    _lock = std::move(lock);
}

MediaLibrary& LibraryService::catalogue()
{
    if (!_catalogue) throw fn::RuntimeException("The catalogue has not been opened");
    return *_catalogue;
}

void LibraryService::inspect(const fn::Value& action, core::InspectionResultWriter& page)
{
    if (!_catalogue) {
        page.append("No catalogue is open");
    } else if (action.isNil()) {
        page.append(fmt::format("Catalogue in {}", printable(_dataFolder)));
        page.append("Journal: wal, synchronous: normal");
        for (const auto& [scan, path, files] : _catalogue->folders()) {
            page.append(fmt::format("{}: {} files", printable(path), files),
                fn::Value::map({ { "folder", scan.folder }, { "number", scan.number } }));
        }
    } else {
        const auto totals =
            _catalogue->totals({ action.at("folder").to<std::int64_t>(), action.at("number").to<std::int64_t>() });
        page.append(fmt::format("Files: {}, {} bytes", totals.files, totals.bytes));
        page.append(fmt::format("Distinct: {}", totals.distinct));
        page.append(fmt::format("Unreadable: {}", totals.unreadable.count));
        for (const auto& [kind, files, bytes] : totals.kinds)
            page.append(fmt::format("{}: {} files, {} bytes", kind.view(), files, bytes));
    }
}

} // namespace media
