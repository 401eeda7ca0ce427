// What can break here: a schema made twice or not at all, a migration that fails on an open statement, a lock that stays
// behind after a failed opening, a connection closed under its user or never closed, a task that outlives the object.
#include "core/data_util.h"
#include "foundation/time/clock.h"
#include "foundation/uv/loop.h"
#include "sqlite/statement.h"
#include "sqlite/transaction.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include <gmock/gmock.h>
#include <semaphore>
#include <thread>

namespace {

using ScopedConnection = core::DatabaseAccess::ScopedConnection;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

int number(sqlite::Database& database, const fn::String& sql)
{
    sqlite::Statement statement(database, sql);
    return statement.executeStep() ? statement.getColumn(0).getInt(-1) : -1;
}

class Access : public core::DatabaseAccess {
public:
    using DatabaseAccess::DatabaseAccess;
    using DatabaseAccess::dropSchema;
    using DatabaseAccess::handleException;

    std::vector<std::string> calls;
    bool isReadyAtOnce = true;

    int storedVersion() { return number(database(), "select version from schema_version"); }
    bool isOpen()
    {
        try {
            database();
            return true;
        } catch (const sqlite::SQLiteException& e) {
            EXPECT_EQ(
                e.displayText(), "No database available. Make sure to have a DatabaseAccess::Connection instance");
            return false;
        }
    }

protected:
    void initSchema() override
    {
        calls.push_back("init");
        database().execute("create table entry (id integer primary key autoincrement, name text unique)");
        database().execute("create index by_name on entry (name)");
        database().execute("insert into entry (name) values ('first')");
    }
    void onDatabaseReady() override
    {
        if (!std::exchange(isReadyAtOnce, true)) throw std::runtime_error("not yet");
        calls.push_back("ready");
    }
};

class DatabaseAccessTest : public testing::Test {
protected:
    /// Runs what is due on the loop.
    void turn()
    {
        loop.post([this] { loop.post([this] { loop.stop(); }); });
        loop.run();
    }

    /// Lets time go by, with everything done that is due meanwhile.
    void pass(fn::Duration time)
    {
        turn();
        clock.advance(time);
        turn();
    }

    static constexpr auto fiveMinutes = fn::Duration::seconds(300);
    static constexpr auto nearlyFiveMinutes = fn::Duration::seconds(299);

    test::TemporaryFolder folder;
    const fn::String path = folder.file("test.db");
    fn::ManualClock clock;
    fn::uv::Loop loop { clock };
};

TEST_F(DatabaseAccessTest, MakesTheSchemaOnceAndFindsItAgain)
{
    {
        Access access(3, path, loop);
        EXPECT_FALSE(access.isOpen());
        const ScopedConnection connection(access);
        EXPECT_THAT(access.calls, ElementsAre("init", "ready"));
        EXPECT_EQ(number(access.database(), "select count(*) from schema_version"), 1);
        EXPECT_EQ(access.storedVersion(), 3);
        EXPECT_EQ(number(access.database(), "pragma foreign_keys"), 1);
    }
    Access access(3, path, loop);
    const ScopedConnection connection(&access);
    EXPECT_THAT(access.calls, ElementsAre("ready"));
}

TEST_F(DatabaseAccessTest, AnotherVersionDropsEverythingAndStartsAnew)
{
    {
        Access access(3, path, loop);
        const ScopedConnection connection(access);
        access.database().execute("create table other (a references entry (id)); create index i on other (a)");
        access.database().execute("insert into other values (1)");
    }
    Access access(4, path, loop);
    const ScopedConnection connection(access);
    EXPECT_THAT(access.calls, ElementsAre("init", "ready"));
    EXPECT_EQ(access.storedVersion(), 4);
    EXPECT_EQ(number(access.database(), "select count(*) from sqlite_master where name = 'other'"), 0);
    EXPECT_EQ(number(access.database(), "select count(*) from entry"), 1);
    EXPECT_EQ(number(access.database(), "select max(id) from entry"), 1); // Counting has begun anew, too.
    sqlite::Statement check(access.database(), "pragma integrity_check");
    ASSERT_TRUE(check.executeStep());
    EXPECT_EQ(check.getColumn(0).getText(), "ok");
}

TEST_F(DatabaseAccessTest, ADropThatFailsLeavesNoWritableSchema)
{
    Access access(1, path, loop);
    EXPECT_THROW(access.dropSchema(), sqlite::SQLiteException); // It is closed.
    const ScopedConnection connection(access);
    access.database().setBusyTimeout({});
    sqlite::Database other(path, 6);
    const sqlite::Transaction lock(other);
    EXPECT_THROW(access.dropSchema(), sqlite::SQLiteException);
    EXPECT_EQ(number(access.database(), "pragma writable_schema"), 0);
}

TEST_F(DatabaseAccessTest, AMigrationOfItsOwnKeepsTheDataAndStoresTheVersionItself)
{
    struct Migrating : Access {
        using Access::Access;
        bool storesVersion = false;
        void migrateSchema(int from, int to) override
        {
            calls.push_back(fmt::format("{} to {}", from, to));
            sqlite::Transaction all(database());
            updateSchemaVersion();
            if (storesVersion) all.commit();
        }
    };
    {
        Access access(3, path, loop);
        const ScopedConnection connection(access);
    }
    for (const bool storesVersion : { false, true }) {
        Migrating access(4, path, loop);
        access.storesVersion = storesVersion;
        const ScopedConnection connection(access);
        EXPECT_THAT(access.calls, ElementsAre("3 to 4", "ready"));
        EXPECT_EQ(access.storedVersion(), storesVersion ? 4 : 3);
        EXPECT_EQ(number(access.database(), "select count(*) from entry"), 1);
    }
}

TEST_F(DatabaseAccessTest, ClosesFiveMinutesAfterTheLastOutermostGuard)
{
    Access access(1, path, loop);
    {
        const ScopedConnection outer(access);
        {
            const ScopedConnection inner(access);
        }
        pass(fiveMinutes); // The end of an inner guard starts nothing.
        EXPECT_TRUE(access.isOpen());
    }
    pass(nearlyFiveMinutes);
    EXPECT_TRUE(access.isOpen());
    {
        const ScopedConnection again(access);
    }
    pass(nearlyFiveMinutes);
    EXPECT_TRUE(access.isOpen());
    EXPECT_THAT(access.calls, ElementsAre("init", "ready"));
    pass(fn::Duration::seconds(1));
    EXPECT_FALSE(access.isOpen());
    const ScopedConnection reopened(access);
    EXPECT_THAT(access.calls, ElementsAre("init", "ready", "ready"));
}

TEST_F(DatabaseAccessTest, ACloseThatFallsDueUnderAGuardLeavesTheConnection)
{
    Access access(1, path, loop);
    {
        const ScopedConnection connection(access);
    }
    turn();
    {
        // The loop looks at its timers before it runs the task that would cancel this one.
        const ScopedConnection connection(access);
        clock.advance(fiveMinutes);
        turn();
        EXPECT_TRUE(access.isOpen());
    }
    turn();
    // A guard of another thread, which the loop must not wait for.
    std::binary_semaphore opened(0);
    std::binary_semaphore done(0);
    std::thread other([&] {
        const ScopedConnection connection(access);
        opened.release();
        done.acquire();
    });
    opened.acquire();
    clock.advance(fiveMinutes);
    turn();
    done.release();
    other.join();
    pass(fiveMinutes);
    EXPECT_FALSE(access.isOpen());
}

TEST_F(DatabaseAccessTest, ScopesOfDistinctThreadsExcludeEachOther)
{
    Access access(1, path, loop);
    int inside = 0; // No lock of its own.
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 25; ++round) {
                const ScopedConnection outer(access);
                const ScopedConnection inner(access);
                EXPECT_EQ(++inside, 1);
                access.database().execute("update entry set name = name");
                --inside;
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_THAT(access.calls, ElementsAre("init", "ready"));
}

TEST_F(DatabaseAccessTest, AnObjectThatGoesOnAnotherThreadLeavesNoTimer)
{
    auto access = std::make_unique<Access>(1, path, loop);
    {
        const ScopedConnection connection(*access);
    }
    turn();
    {
        const ScopedConnection connection(*access); // Its tasks are still queued when the object goes.
    }
    std::thread([&] { access.reset(); }).join();
    pass(fiveMinutes);
}

TEST_F(DatabaseAccessTest, AnOpeningThatFailsFreesTheLock)
{
    Access access(1, folder.file("missing/test.db"), loop);
    EXPECT_THROW(ScopedConnection { access }, sqlite::SQLiteException);
    EXPECT_FALSE(access.isOpen());
    std::filesystem::create_directory(folder.path() / "missing");
    access.isReadyAtOnce = false;
    EXPECT_THROW(ScopedConnection { access }, std::runtime_error);
    EXPECT_THAT(std::exchange(access.calls, {}), ElementsAre("init"));
    std::thread([&] { const ScopedConnection connection(access); }).join();
    EXPECT_THAT(access.calls, ElementsAre("ready")); // It was not taken for ready.
}

TEST_F(DatabaseAccessTest, AFailedSchemaCheckIsLoggedAndLeavesTheConnectionOpen)
{
    test::writeFile(path, std::string(4096, 'x'));
    const test::LogCapture log(1);
    Access access(1, path, loop);
    const ScopedConnection connection(access);
    EXPECT_TRUE(access.isOpen());
    EXPECT_THAT(access.calls, ElementsAre("ready"));
    EXPECT_TRUE(log.contains("1 core.databaseAccess Unexpected exception: file is not a database"));
    EXPECT_TRUE(log.contains(path.view())) << "Of which file.";
}

TEST_F(DatabaseAccessTest, AFileThatHasGoneIsMadeAnew)
{
    Access access(1, path, loop);
    for (const bool deletedUnderneath : { true, false }) {
        {
            const ScopedConnection connection(access);
        }
        EXPECT_THAT(std::exchange(access.calls, {}), ElementsAre("init", "ready"));
        if (deletedUnderneath)
            std::filesystem::remove(path.toStdString());
        else
            access.deleteDatabase();
        EXPECT_FALSE(std::filesystem::exists(path.toStdString()));
        EXPECT_EQ(access.isOpen(), deletedUnderneath);
    }
    const test::LogCapture log(1);
    access.deleteDatabase();
    EXPECT_THAT(log.lines(), ElementsAre(StartsWith("1 core.databaseAccess Could not delete database: ")));
}

TEST_F(DatabaseAccessTest, OnlyAMalformedFileIsDeleted)
{
    Access access(1, path, loop);
    const ScopedConnection connection(access);
    const auto refuse = [&](const char* message) {
        const test::LogCapture log;
        sqlite::SQLiteException exception(message);
        access.handleException(exception);
        return log.lines();
    };
    EXPECT_THAT(refuse("database is locked"), IsEmpty());
    EXPECT_TRUE(std::filesystem::exists(path.toStdString()));
    const auto malformed =
        "1 core.databaseAccess Database disk image " + path.toStdString() + " is malformed :( Deleting file";
    EXPECT_THAT(refuse("database disk image is malformed"), ElementsAre(malformed));
    EXPECT_FALSE(std::filesystem::exists(path.toStdString()));
    EXPECT_THAT(refuse("database disk image is malformed"),
        ElementsAre(malformed, StartsWith("1 core.databaseAccess Error while removing file: ")));
}

} // namespace
