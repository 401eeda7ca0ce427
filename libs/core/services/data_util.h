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
    /// Declares that the code in its scope uses the connection.
    class FN_EXPORT ScopedConnection {
    public:
        /// Waits until no other thread has one, and opens the file where needed. Errors of opening:
        /// `sqlite::SQLiteException`; those of the schema check are logged, and the connection stays open.
        explicit ScopedConnection(DatabaseAccess& access);
        explicit ScopedConnection(DatabaseAccess* access);
        ScopedConnection(const ScopedConnection&) = delete;
        ScopedConnection& operator=(const ScopedConnection&) = delete;
        ~ScopedConnection();

    private:
        void init();

        bool _owner = false; // The outermost guard of its thread.
        DatabaseAccess& _access;
    };

    /// Does not touch the file. `closeLoop` is where the delayed close runs; it outlives the object.
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
    /// Makes the tables in an empty file. It runs again where the process died before the version was stored: tables
    /// that may be there already are made with "if not exists".
    virtual void initSchema() = 0;
    /// Turns a schema of version `from` into one of version `to` and calls `updateSchemaVersion()`, best both in one
    /// `sqlite::Transaction`: a failure then leaves the file as it was. Default: drops it and makes it anew.
    virtual void migrateSchema(int from, int to);
    /// The file has been opened and its schema checked, well or not. Default: nothing. What it throws reaches whoever opens, and
    /// closes the file again.
    virtual void onDatabaseReady();
    /// For deriving classes to call with what SQLite refused. A malformed file is removed, so that the next opening
    /// starts anew; nothing is done about other errors.
    virtual void handleException(sqlite::SQLiteException& exception);
    virtual void
    updateSchemaVersion(); ///< Stores the version that the code expects, in the transaction going on if any.

    /// Makes or migrates the schema where the version stored is not the one expected. Exceptions of the fn family are
    /// logged.
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
    const std::shared_ptr<Connection> _connection; // With tasks of the loop.
    const std::shared_ptr<CloseTimer> _closeTimer;
};

} // namespace core
