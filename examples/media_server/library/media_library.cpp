#include "library/media_library.h"
#include "library/file_kind.h"
#include "sqlite/statement.h"
#include "sqlite/transaction.h"

namespace media {
namespace {

constexpr int schemaVersion = 1;

// Paths are blobs: SQLite expects text to be UTF-8, which file names need not be.
fn::ByteArray blob(const fn::String& path) { return fn::ByteArray(path.view()); }
fn::String path(const sqlite::Column& column) { return column.getBlob().view(); }

std::int64_t count(const sqlite::Column& column) { return column.getInt64(0); }

} // namespace

MediaLibrary::MediaLibrary(const fn::String& path) : DatabaseAccess(schemaVersion, path) { }
MediaLibrary::~MediaLibrary() = default;

void MediaLibrary::initSchema()
{
    database().execute("create table if not exists folders (id integer primary key, path blob not null unique, "
                       "scan integer not null)"); // The latest scan's number.
    // `scan`: the latest scan that found the file. `hashed`: the scan that read it; null, like `hash`, if reading failed.
    database().execute(
        "create table if not exists files (folder integer not null references folders (id), path blob not null, "
        "size integer not null, modified integer not null, hash text, kind text not null, "
        "scan integer not null, hashed integer, primary key (folder, path)) without rowid");
}

void MediaLibrary::onDatabaseReady()
{
    // With these, transactions do not wait for the disk. The next scan reads anew the files that a power cut has lost.
    database().execute("pragma journal_mode = wal");
    database().execute("pragma synchronous = normal");
}

template <typename Work> auto MediaLibrary::inTransaction(Work work)
{
    try {
        const ScopedConnection connection(this);
        sqlite::Transaction transaction(database());
        if constexpr (std::is_void_v<std::invoke_result_t<Work&>>) {
            work();
            transaction.commit();
        } else {
            auto result = work();
            transaction.commit();
            return result;
        }
    } catch (sqlite::SQLiteException& exception) {
        handleException(exception);
        throw;
    }
}

void MediaLibrary::open()
{
    inTransaction([&] { database().execute("select count(*) from folders"); });
}

ScanId MediaLibrary::beginScan(const fn::String& folder)
{
    return inTransaction([&] {
        sqlite::Statement upsert(database(),
            "insert into folders (path, scan) values (?, 1) on conflict (path) do update set scan = scan + 1 "
            "returning id, scan");
        upsert.bindAt(1, blob(folder));
        upsert.executeStep();
        const ScanId scan { upsert.getColumn(0).getInt64(), upsert.getColumn(1).getInt64() };
        upsert.executeStep();
        return scan;
    });
}

std::vector<std::size_t> MediaLibrary::compare(const ScanId& scan, const std::vector<FoundFile>& files)
{
    return inTransaction([&] {
        sqlite::Statement update(database(),
            "update files set scan = ? where folder = ? and path = ? and size = ? and modified = ? "
            "and hash is not null");
        std::vector<std::size_t> changed;
        for (std::size_t i = 0; i < files.size(); ++i) {
            update.bindAt(1, scan.number);
            update.bindAt(2, scan.folder);
            update.bindAt(3, blob(files[i].path));
            update.bindAt(4, files[i].size);
            update.bindAt(5, files[i].modified);
            if (update.execute() == 0) changed.push_back(i);
        }
        return changed;
    });
}

void MediaLibrary::store(const ScanId& scan, const std::vector<ScannedFile>& files)
{
    inTransaction([&] {
        sqlite::Statement insertion(database(),
            "insert or replace into files (folder, path, size, modified, hash, kind, scan, hashed) "
            "values (?, ?, ?, ?, ?, ?, ?, ?)");
        for (const auto& [file, hash] : files) {
            insertion.bindAt(1, scan.folder);
            insertion.bindAt(2, blob(file.path));
            insertion.bindAt(3, file.size);
            insertion.bindAt(4, file.modified);
            insertion.bindAt(6, kindOfFile(file.path));
            insertion.bindAt(7, scan.number);
            if (hash.empty()) {
                insertion.bindAt(5, nullptr);
                insertion.bindAt(8, nullptr);
            } else {
                insertion.bindAt(5, hash);
                insertion.bindAt(8, scan.number);
            }
            insertion.execute();
        }
    });
}

Totals MediaLibrary::finishScan(const ScanId& scan)
{
    return inTransaction([&] {
        forgetOthers(scan);
        return sumUpAll(scan);
    });
}

Totals MediaLibrary::totals(const ScanId& scan)
{
    return inTransaction([&] { return sumUpAll(scan); });
}

Totals MediaLibrary::sumUpAll(const ScanId& scan)
{
    Totals totals;
    sumUp(scan, totals);
    sumUpKinds(scan, totals);
    nameUnreadable(scan, totals);
    return totals;
}

std::vector<MediaLibrary::Folder> MediaLibrary::folders()
{
    return inTransaction([&] {
        std::vector<Folder> result;
        sqlite::Statement selection(database(),
            "select id, scan, path, (select count(*) from files where folder = id) from folders order by path");
        while (selection.executeStep()) {
            result.push_back({ { selection.getColumn(0).getInt64(), selection.getColumn(1).getInt64() },
                path(selection.getColumn(2)), count(selection.getColumn(3)) });
        }
        return result;
    });
}

void MediaLibrary::forgetOthers(const ScanId& scan)
{
    sqlite::Statement deletion(database(), "delete from files where folder = ? and scan <> ?");
    deletion.bindAt(1, scan.folder);
    deletion.bindAt(2, scan.number);
    deletion.execute();
}

void MediaLibrary::sumUp(const ScanId& scan, Totals& totals)
{
    sqlite::Statement sums(database(),
        "select count(*), sum(size), count(distinct hash), sum(hashed = ?), count(*) - count(hash) "
        "from files where folder = ?");
    sums.bindAt(1, scan.number);
    sums.bindAt(2, scan.folder);
    sums.executeStep();
    totals.files = count(sums.getColumn(0));
    totals.bytes = count(sums.getColumn(1));
    totals.distinct = count(sums.getColumn(2));
    totals.hashed = count(sums.getColumn(3));
    totals.unreadable.count = count(sums.getColumn(4));
}

void MediaLibrary::sumUpKinds(const ScanId& scan, Totals& totals)
{
    sqlite::Statement sums(database(),
        "select kind, count(*), sum(size) from files where folder = ? group by kind order by sum(size) desc, kind");
    sums.bindAt(1, scan.folder);
    while (sums.executeStep()) {
        totals.kinds.push_back({ sums.getColumn(0).getText(), count(sums.getColumn(1)), count(sums.getColumn(2)) });
    }
}

void MediaLibrary::nameUnreadable(const ScanId& scan, Totals& totals)
{
    sqlite::Statement selection(
        database(), "select path from files where folder = ? and hash is null order by path limit ?");
    selection.bindAt(1, scan.folder);
    selection.bindAt(2, static_cast<std::int64_t>(PathSample::mostNamed));
    while (selection.executeStep()) totals.unreadable.paths.push_back(path(selection.getColumn(0)));
}

} // namespace media
