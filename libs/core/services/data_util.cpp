#include "core/services/data_util.h"
#include "foundation/io/file.h"
#include "foundation/logging/logging.h"
#include "foundation/system/lock.h"
#include "foundation/unhandled_exception.h"
#include "sqlite/statement.h"
#include "sqlite/transaction.h"
#include <mutex>
#include <optional>
#include <utility>

namespace core {
namespace {

constexpr auto site = "libs/core/data_util";
constexpr fn::Duration closeDelay(300'000'000); // Five minutes.

constexpr auto& category = fn::logging::category<"core.databaseAccess">;

// Log sites carry the qualified name, which __func__ does not.
#define LOG_DATABASE(priority, function, ...) \
    do { \
        if (category().wants(priority)) \
            fn::logging::writePrintf( \
                category(), priority, {}, { site, __LINE__, "core::DatabaseAccess::" function }, __VA_ARGS__); \
    } while (false)

void logError(
    const char* function, fmt::string_view format, const fn::Exception& exception, int line = __builtin_LINE())
{
    if (!category().wants(fn::logging::Error)) return;
    const std::string_view text = exception.what();
    fn::logging::writeFormatted(
        category(), fn::logging::Error, {}, { site, line, function }, format, fmt::make_format_args(text));
}

constexpr int noVersion = -1;

/// Ends its statement before it returns, since a running statement would keep VACUUM from working.
int storedVersion(sqlite::Database& database)
{
    sqlite::Statement selection(database, "select version from schema_version");
    return selection.executeStep() ? selection.getColumn(0).getInt(-1) : noVersion;
}

/// To be called also after a failure: while the schema is writable, any mistaken statement breaks the file.
void protectSchema(sqlite::Database& database) noexcept
{
    try {
        database.execute("PRAGMA writable_schema = 0;");
    } catch (...) {
        fn::logException();
    }
}

} // namespace

struct DatabaseAccess::Connection {
    void close()
    {
        const fn::ScopedLock guard(lock);
        database.reset();
    }

    /// The delayed close must neither wait for a guard of another thread nor take the connection from one of this
    /// thread. Either way that guard arms the timer again at its end.
    void closeUnlessUsed()
    {
        const std::unique_lock guard(lock, std::try_to_lock);
        if (guard && !connected) database.reset();
    }

    fn::Lock lock; // Guards the rest; ScopedConnections hold it for the whole of their scopes.
    std::unique_ptr<sqlite::Database> database; // Null while closed.
    bool connected = false; // Whether an outermost ScopedConnection exists.
};

/// The pending delayed close. Used on the loop's thread only, by tasks that share it: the last of them, posted by the
/// destructor of the DatabaseAccess, leaves the handle empty.
struct DatabaseAccess::CloseTimer {
    fn::RunLoop& loop;
    fn::Handle handle;
};

DatabaseAccess::ScopedConnection::ScopedConnection(DatabaseAccess& access) : _access(access) { init(); }

DatabaseAccess::ScopedConnection::ScopedConnection(DatabaseAccess* access) : ScopedConnection(*access) { }

void DatabaseAccess::ScopedConnection::init()
{
    _access.cancelClose();
    auto& connection = *_access._connection;
    std::unique_lock lock(connection.lock);
    if (!connection.connected) {
        _access.open();
        _owner = connection.connected = true;
    }
    lock.release(); // Held until the destructor.
}

DatabaseAccess::ScopedConnection::~ScopedConnection()
{
    auto& connection = *_access._connection;
    const std::unique_lock lock(connection.lock, std::adopt_lock);
    if (!_owner) return;
    connection.connected = false;
    _access.scheduleClose();
}

DatabaseAccess::DatabaseAccess(int currentVersion, const fn::String& path, fn::RunLoop& closeLoop)
    : _currentVersion(currentVersion),
      _path(path),
      _connection(std::make_shared<Connection>()),
      _closeTimer(std::make_shared<CloseTimer>(closeLoop))
{
}

DatabaseAccess::~DatabaseAccess() { close(); }

sqlite::Database& DatabaseAccess::database()
{
    const fn::ScopedLock guard(_connection->lock);
    if (!_connection->database) {
        throw sqlite::SQLiteException("No database available. Make sure to have a DatabaseAccess::Connection instance",
            fn::Exception::StackTrace::Capture);
    }
    return *_connection->database;
}

void DatabaseAccess::open()
{
    auto& database = _connection->database;
    // SQLite would go on with the file that has no name any more.
    if (database && !fn::File(_path).exists()) database.reset();
    if (database) return;
    database = std::make_unique<sqlite::Database>(_path, _openFlags);
    database->execute("PRAGMA foreign_keys = ON;");
    try {
        checkSchema();
        onDatabaseReady();
    } catch (...) {
        database.reset(); // Otherwise the next guard would take the open connection for ready.
        throw;
    }
}

void DatabaseAccess::close()
{
    cancelClose();
    _connection->close();
}

void DatabaseAccess::cancelClose()
{
    _closeTimer->loop.post([timer = _closeTimer] { timer->handle.invalidate(); });
}

void DatabaseAccess::scheduleClose()
{
    _closeTimer->loop.post([timer = _closeTimer, connection = _connection] {
        timer->handle = timer->loop.schedule(closeDelay, [connection] { connection->closeUnlessUsed(); });
    });
}

void DatabaseAccess::deleteDatabase()
{
    const fn::ScopedLock guard(_connection->lock);
    _connection->database.reset();
    try {
        fn::File(_path).remove(false);
    } catch (const fn::Exception& exception) {
        logError("core::DatabaseAccess::deleteDatabase", "Could not delete database: {}", exception);
    }
}

void DatabaseAccess::checkSchema()
{
    LOG_DATABASE(fn::logging::Log, "checkSchema", "Checking schema version");
    try {
        initVersionTable();
        const int persistent = storedVersion(database());
        LOG_DATABASE(fn::logging::Log, "checkSchema", "Persistent schema version: %i, Current schema version: %i",
            persistent, _currentVersion);
        if (persistent == noVersion) {
            doInitSchema();
        } else if (persistent != _currentVersion) {
            LOG_DATABASE(fn::logging::Info, "checkSchema", "Migrating schema from %i to %i for %s", persistent,
                _currentVersion, _path.c_str());
            migrateSchema(persistent, _currentVersion);
        }
    } catch (fn::Exception& exception) {
        exception.attach(fn::PathInfo { _path });
        logError("core::DatabaseAccess::checkSchema", "Unexpected exception: {}", exception);
    }
}

void DatabaseAccess::initVersionTable()
{
    database().execute("create table if not exists schema_version (version integer)");
}

void DatabaseAccess::doInitSchema()
{
    LOG_DATABASE(fn::logging::Info, "doInitSchema", "Initializing schema for %s", _path.c_str());
    initVersionTable();
    initSchema();
    updateSchemaVersion();
}

void DatabaseAccess::updateSchemaVersion()
{
    auto& database = this->database();
    std::optional<sqlite::Transaction> transaction;
    if (!database.isInTransaction()) transaction.emplace(database);
    database.execute("delete from schema_version");
    sqlite::Statement insertion(database, "insert into schema_version values (?)");
    insertion.bindAt(1, _currentVersion);
    insertion.execute();
    if (transaction) transaction->commit();
}

void DatabaseAccess::dropSchema()
try {
    LOG_DATABASE(fn::logging::Info, "dropSchema", "Dropping schema for %s", _path.c_str());
    // Deleting the entries by hand needs no names and knows no dependencies between tables. VACUUM then gives the space
    // back and makes SQLite read the schema anew. Without the sqlite_sequence table, which exists only where a table
    // counts its rows, the second deletion would fail.
    for (const auto* sql : {
             "PRAGMA writable_schema = 1;",
             "create table if not exists sqlite_sequence(dummy integer);",
             "delete from sqlite_sequence;",
             "delete from sqlite_master where type = 'index';",
             "delete from sqlite_master where type = 'table';",
             "PRAGMA writable_schema = 0;",
             "PRAGMA INTEGRITY_CHECK;",
             "VACUUM;",
             "PRAGMA INTEGRITY_CHECK;",
         }) {
        database().execute(sql);
    }
} catch (...) {
    if (const auto& open = _connection->database) protectSchema(*open);
    throw;
}

void DatabaseAccess::migrateSchema(int, int)
{
    dropSchema();
    doInitSchema();
}

void DatabaseAccess::onDatabaseReady() { }

void DatabaseAccess::handleException(sqlite::SQLiteException& exception)
{
    if (!exception.displayText().contains("database disk image is malformed")) return;
    LOG_DATABASE(
        fn::logging::Error, "handleException", "Database disk image %s is malformed :( Deleting file", _path.c_str());
    try {
        fn::File(_path).remove(false);
    } catch (const fn::Exception& failure) {
        logError("core::DatabaseAccess::handleException", "Error while removing file: {}", failure);
    }
}

} // namespace core
