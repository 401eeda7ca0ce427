#include "library/library_service.h"
#include "api/library.h"
#include "api/text.h"
#include "base/exceptions.h"
#include "foundation/io/file.h"
#include "foundation/logging/logging.h"
#include <filesystem>
#include <fmt/format.h>

namespace media {
namespace {

// A library that was just killed, or is ending, releases its catalogue in far less than this second.
constexpr int lockAttempts = 20;
constexpr auto lockInterval = fn::Duration::milliseconds(50);

constexpr const char* site = "examples/media_server/library";

const fn::logging::Category& category()
{
    static const auto& result = fn::logging::CategoryManager::instance().getCategory("mediaServer.library");
    return result;
}

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

LibraryService::LibraryService(ipc::Worker& worker) : CallableObjectInstance(worker) { }
LibraryService::~LibraryService() = default;

fn::AutoPtr<ipc::ObjectReference> LibraryService::createReference(ipc::ObjectReferenceInitializer& initializer)
{
    return fn::makeAuto<Library>(initializer);
}

void LibraryService::onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument)
{
    if (name == "open")
        open(context, argument.string());
    else if (name == "beginScan")
        sendResult(context, catalogue().beginScan(argument.string()).toValue());
    else if (name == "compare")
        sendResult(context, compare(argument));
    else if (name == "store")
        sendResult(context, store(argument));
    else if (name == "finishScan")
        sendResult(context, catalogue().finishScan(ScanId::fromValue(argument)).toValue());
    else
        sendUnknownMethod(context, name);
}

fn::Value LibraryService::compare(const fn::Value& argument)
{
    const auto& files = argument.at("files");
    const auto positions = catalogue().compare(ScanId::fromValue(argument.at("scan")), fromValues<FoundFile>(files));
    FN_LOG_TO(category(), fn::logging::Log, {}, site, "{} of {} files have changed", positions.size(), files.size());
    return fn::Value::Array(positions.begin(), positions.end());
}

fn::Value LibraryService::store(const fn::Value& argument)
{
    const auto& files = argument.at("files");
    catalogue().store(ScanId::fromValue(argument.at("scan")), fromValues<ScannedFile>(files));
    FN_LOG_TO(category(), fn::logging::Log, {}, site, "Stored {} files", files.size());
    return {};
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
        for (const auto& [scan, path, files] : _catalogue->folders())
            page.append(fmt::format("{}: {} files", printable(path), files), scan.toValue());
    } else {
        const auto totals = _catalogue->totals(ScanId::fromValue(action));
        page.append(fmt::format("Files: {}, {} bytes", totals.files, totals.bytes));
        page.append(fmt::format("Distinct: {}", totals.distinct));
        page.append(fmt::format("Unreadable: {}", totals.unreadable.count));
        for (const auto& [kind, files, bytes] : totals.kinds)
            page.append(fmt::format("{}: {} files, {} bytes", kind.view(), files, bytes));
    }
}

void LibraryService::open(const CallContext& context, const fn::String& dataFolder)
{
    FN_LOG_TO(category(), fn::logging::Info, {}, site, "Opening the catalogue in {}", printable(dataFolder));
    _nextAttempt.invalidate();
    _catalogue.reset();
    _lock.reset();
    _dataFolder = dataFolder;
    makeFolder(dataFolder);
    _lock = std::make_unique<CatalogueLock>(dataFolder + "/catalogue.lock");
    openOnceFree(context, dataFolder, lockAttempts);
}

void LibraryService::openOnceFree(const CallContext& context, const fn::String& dataFolder, int attemptsLeft)
{
    try {
        if (_lock->tryLock()) {
            auto catalogue = std::make_unique<MediaLibrary>(dataFolder + "/catalogue.sqlite");
            catalogue->open();
            _catalogue = std::move(catalogue);
            sendResult(context);
        } else if (attemptsLeft == 0) {
            throw fn::with(
                fn::RuntimeException("The catalogue is in use by another run", fn::Exception::StackTrace::None),
                fn::PathInfo { dataFolder });
        } else {
            _nextAttempt = loop().schedule(lockInterval,
                [this, context, dataFolder, attemptsLeft] { openOnceFree(context, dataFolder, attemptsLeft - 1); });
        }
    } catch (...) {
        sendError(context, std::current_exception());
    }
}

} // namespace media
