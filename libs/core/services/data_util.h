#pragma once
#include "base/export.h"
#include "base/string.h"
#include "foundation/run_loop.h"
#include "sqlite/database.h"
#include "sqlite/sqlite_exception.h"
#include <memory>

namespace core {

/// Base of the components that keep their data in an SQLite file.
///
/// The connection opens when the first `ScopedConnection` asks for it and closes five minutes after the last one has
/// gone. Each opening compares the schema version kept in the file, in the one row of its table `schema_version`, with
/// the one the code expects, and makes or migrates the schema.
///
/// Threading: `ScopedConnection`s may be made on any thread; their scopes exclude each other between threads and may be
/// nested on one. The delayed close runs on the default loop; while that does not run the file stays open. The hooks are
/// called on the thread that opens, with the lock held. Destroy the object on any thread, after its guards.
class FN_EXPORT DatabaseAccess {
public:
    /// Keeps the connection open and for this thread alone while it exists.
    class FN_EXPORT ScopedConnection {
    public:
        /// Waits until no other thread has a guard, and opens the file if it is closed. `sqlite::SQLiteException` if it cannot be
        /// opened; errors of the schema check are logged, and the connection stays open.
        explicit ScopedConnection(DatabaseAccess& access);
        explicit ScopedConnection(DatabaseAccess* access);
        ScopedConnection(const ScopedConnection&) = delete;
        ScopedConnection& operator=(const ScopedConnection&) = delete;
        ~ScopedConnection();

    private:
        void init();

        bool _owner = false; // Whether this is the outermost guard of its thread.
        DatabaseAccess& _access;
    };

    /// Does not touch the file. The delayed close runs on `closeLoop`, which outlives this object.
    DatabaseAccess(int currentVersion, const fn::String& path, fn::RunLoop& closeLoop = fn::RunLoop::defaultLoop());
    DatabaseAccess(const DatabaseAccess&) = delete;
    DatabaseAccess& operator=(const DatabaseAccess&) = delete;
    virtual ~DatabaseAccess();

    /// The open connection, valid within a `ScopedConnection`. `sqlite::SQLiteException` "No database available. ..."
    /// while there is none.
    sqlite::Database& database();

    /// Closes the connection, also under a guard of this thread, and removes the file. A failed removal is logged.
    void deleteDatabase();

protected:
    /// Removes every table and index without knowing their names. Triggers and views stay behind and make the file
    /// unusable: a schema that has them overrides this. Not inside of a transaction. A failure is thrown and may leave
    /// tables without their indices; the version stays stored, so that the next opening drops them again.
    virtual void dropSchema();
    /// Makes the tables in an empty file, with "if not exists": it runs again if the process has died before the version was
    /// stored.
    virtual void initSchema() = 0;
    /// Turns a schema of version `from` into one of version `to` and calls `updateSchemaVersion()`, best both in one
    /// `sqlite::Transaction`: a failure then leaves the file as it was. Default: drops the schema and makes it anew.
    virtual void migrateSchema(int from, int to);
    /// Called when the file has been opened and its schema checked, with success or not. Default: nothing. An exception closes the
    /// file again and reaches the caller that opens it.
    virtual void onDatabaseReady();
    /// To be called by derived classes with an exception of SQLite. Removes a malformed file, so that the next opening starts anew;
    /// does nothing about other errors.
    virtual void handleException(sqlite::SQLiteException& exception);
    virtual void
    updateSchemaVersion(); ///< Stores the version that the code expects, in the transaction going on if any.

    /// Makes or migrates the schema if the stored version is not the expected one. Logs exceptions of the fn family.
    void checkSchema();

private:
    struct Connection;
    struct CloseTimer;

    void close();
    void open();
    void initVersionTable();
    void doInitSchema();
    void cancelClose();
    void scheduleClose();

    const int _currentVersion;
    const fn::String _path;
    const int _openFlags = 6; // SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE
    const std::shared_ptr<Connection> _connection; // Shared with tasks of the loop.
    const std::shared_ptr<CloseTimer> _closeTimer;
};

} // namespace core
