// What can break here: a schema made twice or not at all, a migration that fails on an open statement, a connection closed
// under its user or never closed, a task that outlives the object.
#include "core/services/database_work.h"
#include "foundation/time/clock.h"
#include "foundation/uv/loop.h"
#include "sqlite/statement.h"
#include "sqlite/transaction.h"
#include "support/log_capture.h"
#include "support/run_until.h"
#include "support/temporary_folder.h"
#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <optional>
#include <thread>

namespace {

using ScopedConnection = core::DatabaseAccess::ScopedConnection;
using testing::ElementsAre;

class Access : public core::DatabaseAccess {
public:
    using DatabaseAccess::DatabaseAccess;
    using DatabaseAccess::handleException;

    std::vector<std::string> calls;
    bool migratesItself = false;

    int ask(const char* sql)
    {
        sqlite::Statement statement(database(), sql);
        return statement.executeStep() ? statement.getColumn(0).getInt(-1) : -1;
    }
    bool isOpen()
    try {
        database();
        return true;
    } catch (const sqlite::SQLiteException&) {
        return false;
    }

protected:
    void initSchema() override
    {
        calls.push_back("init");
        database().execute("create table entry (id integer primary key autoincrement, name text unique)");
        database().execute("create index by_name on entry (name)");
        database().execute("insert into entry (name) values ('first')");
    }
    void migrateSchema(int from, int to) override
    {
        if (!migratesItself) return DatabaseAccess::migrateSchema(from, to);
        calls.push_back(fmt::format("{} to {}", from, to));
        sqlite::Transaction all(database());
        updateSchemaVersion();
        all.commit();
    }
    void onDatabaseReady() override { calls.push_back("ready"); }
};

class DatabaseAccessTest : public testing::Test {
protected:
    void turn() { test::runTurns(loop, 3); }

    /// Lets time go by, with everything done that is due meanwhile.
    void pass(int seconds)
    {
        turn();
        clock.advance(fn::Duration::seconds(seconds));
        turn();
    }

    test::TemporaryFolder folder;
    const fn::String path = folder.file("test.db");
    fn::ManualClock clock;
    fn::uv::Loop loop { clock };
};

TEST_F(DatabaseAccessTest, MakesTheSchemaOnceAndAnewForAnotherVersion)
{
    for (const auto& [version, isAsBefore] : { std::pair(3, false), { 3, true }, { 4, false } }) {
        Access access(version, path, loop);
        EXPECT_FALSE(access.isOpen());
        const ScopedConnection connection(&access);
        EXPECT_EQ(fmt::format("{}", fmt::join(access.calls, " ")), isAsBefore ? "ready" : "init ready") << version;
        const std::pair<const char*, int> facts[] = { { "select count(*) from schema_version", 1 },
            { "select version from schema_version", version }, { "pragma foreign_keys", 1 },
            { "select count(*) from sqlite_master where name = 'other'", isAsBefore },
            { "select count(*) from entry", 1 }, { "select max(id) from entry", 1 } }; // Counting begins anew, too.
        for (const auto& [sql, fact] : facts) EXPECT_EQ(access.ask(sql), fact) << sql;
        if (isAsBefore) continue;
        access.database().execute("create table other (a references entry (id)); create index i on other (a)");
        access.database().execute("insert into other values (1)");
    }
    Access migrating(5, path, loop);
    migrating.migratesItself = true;
    const ScopedConnection connection(migrating);
    EXPECT_THAT(migrating.calls, ElementsAre("4 to 5", "ready"));
    EXPECT_EQ(migrating.ask("select version from schema_version"), 5);
    EXPECT_EQ(migrating.ask("select count(*) from other"), 1);
}

TEST_F(DatabaseAccessTest, ClosesFiveMinutesAfterTheLastOutermostGuardAndNotUnderOne)
{
    Access access(1, path, loop);
    std::optional<ScopedConnection> connection(access);
    {
        const ScopedConnection inner(access);
    }
    pass(300); // The end of an inner guard starts nothing.
    EXPECT_TRUE(access.isOpen());
    connection.reset();
    pass(299);
    connection.emplace(access); // The loop looks at its timers before it runs the task that cancels this one.
    clock.advance(fn::Duration::seconds(1));
    turn();
    EXPECT_TRUE(access.isOpen());
    connection.reset();
    pass(300);
    EXPECT_FALSE(access.isOpen());
    connection.emplace(access);
    EXPECT_THAT(access.calls, ElementsAre("init", "ready", "ready"));
}

TEST_F(DatabaseAccessTest, ScopesOfDistinctThreadsExcludeEachOther)
{
    auto access = std::make_unique<Access>(1, path, loop);
    int inside = 0; // No lock of its own.
    const auto use = [&] {
        for (int round = 0; round < 25; ++round) {
            const ScopedConnection outer(*access);
            const ScopedConnection inner(*access);
            EXPECT_EQ(++inside, 1);
            access->database().execute("update entry set name = name");
            --inside;
        }
    };
    {
        const std::jthread first(use), second(use), third(use), fourth(use);
    }
    EXPECT_THAT(access->calls, ElementsAre("init", "ready"));
    std::thread([&] { access.reset(); }).join(); // Its tasks are still queued, and leave no timer.
    pass(300);
}

TEST_F(DatabaseAccessTest, IsWorkedOnByThePoolAndOutlivesItsOwner)
{
    auto access = std::make_shared<Access>(1, path, loop);
    std::string heard;
    const auto ask = [&](const char* sql) {
        const auto work = [sql, loopThread = std::this_thread::get_id()](Access& shared) {
            EXPECT_NE(std::this_thread::get_id(), loopThread);
            return shared.ask(sql);
        };
        return core::onDatabase(access, work);
    };
    loop.post([&] {
        ask("select count(*) from entry").cancel();
        ask("select count(*) from entry").then([&](int count) { heard += count == 1 ? "1" : "?"; });
        ask("nonsense").then([](int) {}, [&](auto&&) { heard += "x"; });
        access.reset();
    });
    EXPECT_TRUE(test::runUntil(loop, [&] { return heard == "1x" || heard == "x1"; }));
}

TEST_F(DatabaseAccessTest, OnlyAMalformedFileIsDeleted)
{
    test::writeFile(path, std::string(4096, 'x'));
    const test::LogCapture log(1);
    Access access(1, path, loop);
    const auto open = [&] {
        const ScopedConnection connection(access);
        return std::exchange(access.calls, {});
    };
    EXPECT_THAT(open(), ElementsAre("ready"));
    EXPECT_TRUE(log.contains("file is not a database") && log.contains(path.view()));
    std::filesystem::remove(path.toStdString());
    EXPECT_THAT(open(), ElementsAre("init", "ready")) << "what has gone is made anew";
    const auto isThereAfter = [&](const char* message) {
        sqlite::SQLiteException exception(message);
        access.handleException(exception);
        return std::filesystem::exists(path.toStdString());
    };
    EXPECT_TRUE(isThereAfter("database is locked"));
    EXPECT_FALSE(isThereAfter("database disk image is malformed"));
    EXPECT_EQ(log.lines().size(), 2U);
}

} // namespace
