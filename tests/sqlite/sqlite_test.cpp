// What can break here: an error swallowed or without its cause, a lock kept by a statement or a transaction nobody needs any
// more, a value that does not come back as it was bound, a statement that outlives its database.
#include "foundation/io/file.h"
#include "sqlite/database.h"
#include "sqlite/sqlite_exception.h"
#include "sqlite/statement.h"
#include "sqlite/transaction.h"
#include "support/temporary_folder.h"
#include <atomic>
#include <gtest/gtest.h>
#include <optional>
#include <thread>

namespace {

using sqlite::Database;
using sqlite::Statement;
using sqlite::Transaction;

constexpr int readWriteCreate = 6;
enum Code { Error = 1, Busy = 5, Corrupt = 11, CannotOpen = 14, Constraint = 19, Range = 25, NotADatabase = 26 };

struct Failure {
    int code = 0; // The primary one; 0 if the call throws nothing.
    fn::String message;
};

class SQLite : public testing::Test {
protected:
    SQLite() { database.execute("create table t (id integer primary key, value unique)"); }

    template <typename Call> Failure failureOf(Call call) const
    {
        try {
            call();
        } catch (const sqlite::SQLiteException& e) {
            EXPECT_EQ(*e.find<fn::PathInfo>(), path);
            return { *e.find<fn::ErrorCodeInfo>() & 0xFF, e.displayText() };
        }
        return {};
    }

    std::optional<int> firstInt(const fn::String& sql)
    {
        Statement statement(database, sql);
        if (!statement.executeStep()) return std::nullopt;
        return statement.getColumn(0).getInt(-1);
    }

    const test::TemporaryFolder folder;
    const fn::String path = folder.file("daten bänk.db");
    Database database { path, readWriteCreate };
};

TEST_F(SQLite, GivesValuesBackAsTheyWereBound)
{
    Statement insert(database, "insert into t (value) values (?1)");
    Statement select(database, "select value, typeof(value) from t where id = last_insert_rowid()");
    const auto roundTrip = [&](const auto& value, const char* type, auto check) {
        insert.bindAt(1, value);
        EXPECT_EQ(insert.execute(), 1);
        ASSERT_TRUE(select.executeStep());
        EXPECT_EQ(select.getColumn(1).getText(), type);
        check(select.getColumn(0));
        EXPECT_FALSE(select.executeStep());
    };
    using sqlite::Column;
    roundTrip(INT64_MIN, "integer", [](Column c) {
        EXPECT_EQ(c.getInt64(), INT64_MIN);
        EXPECT_EQ(c.getInt(7), 7); // Not the lower half of the number.
    });
    roundTrip(-0.1, "real", [](Column c) { EXPECT_EQ(c.getDouble(), -0.1); });
    for (const auto& text : { fn::String(), fn::String("größe 😀"), fn::String(std::string_view("a\0b", 3)),
             fn::String("\xFF\xFE"), fn::String(std::string(100'000, 'x')) }) {
        roundTrip(text, "text", [&](Column c) { EXPECT_EQ(c.getText(), text); });
    }
    for (const auto& bytes : { fn::ByteArray(), fn::ByteArray(3u), fn::ByteArray(1'000'000u) }) {
        roundTrip(bytes, "blob", [&](Column c) {
            EXPECT_FALSE(c.isNull()); // No bytes are not NULL.
            EXPECT_EQ(c.getBlob(), bytes);
        });
    }
    roundTrip(nullptr, "null", [](Column c) {
        EXPECT_TRUE(c.isNull());
        EXPECT_EQ(c.getInt(), -1);
        EXPECT_EQ(c.getInt64(5), 5);
        EXPECT_EQ(c.getText(), "");
        EXPECT_EQ(c.getBlob(), fn::ByteArray());
    });
    EXPECT_EQ(failureOf([&] { insert.bindAt(2, 1); }).code, Range);
    EXPECT_EQ(failureOf([&] { insert.bindAt(0, fn::String("x")); }).code, Range);
}

TEST_F(SQLite, CountsTheRowsThatAStatementChangedItself)
{
    EXPECT_EQ(
        database.execute("insert into t values (1, 'a'), (2, 'b'); -- two\n insert into t values (3, 'c');\n"), 3);
    EXPECT_EQ(database.execute("create table log (id integer)"), 0); // Not the 1 of the insertion before.
    EXPECT_EQ(database.execute(""), 0);
    Statement update(database, "update t set value = 'd' where id = ?");
    update.bindAt(1, 3);
    EXPECT_EQ(update.execute(), 1);
    update.clearBindings();
    EXPECT_EQ(update.execute(), 0);
}

TEST_F(SQLite, StopsAtTheFirstStatementThatFailsAndSaysWhy)
{
    const auto failure =
        failureOf([&] { database.execute("insert into t values (1, 1); bad; insert into t values (2, 2)"); });
    EXPECT_EQ(failure.code, Error);
    EXPECT_EQ(failure.message, "near \"bad\": syntax error");
    const fn::String cut = std::string_view("delete from t\0 where id = 7", 27);
    for (const auto& notOne : { fn::String("select 1; delete from t"), fn::String(" -- nothing"), cut }) {
        EXPECT_NE(failureOf([&] { Statement(database, notOne); }).code, 0) << notOne;
    }
    EXPECT_NE(failureOf([&] { database.execute(cut); }).code, 0);
    EXPECT_EQ(firstInt("select count(*) from t"), 1);

    Statement insert(database, "insert into t (value) values (?)");
    insert.bindAt(1, 1);
    try {
        insert.execute();
        FAIL() << "The value is unique";
    } catch (const sqlite::SQLiteException& e) {
        EXPECT_EQ(*e.find<fn::ErrorCodeInfo>(), Constraint | 8 << 8) << "The extended code.";
        EXPECT_TRUE(e.find<fn::DetailInfo>()->contains("insert into t"));
    }
    insert.bindAt(1, 2);
    EXPECT_EQ(insert.execute(), 1);
}

TEST_F(SQLite, ReadsColumnsOfTheCurrentRowOnly)
{
    database.execute("insert into t values (1, 'a'), (2, 'b')");
    Statement select(database, "select id from t order by id");
    EXPECT_THROW(select.getColumn(0), fn::RangeException);
    ASSERT_TRUE(select.executeStep());
    EXPECT_THROW(select.getColumn(1), fn::RangeException);
    EXPECT_THROW(select.getColumn(-1), fn::RangeException);
    ASSERT_TRUE(select.executeStep());
    EXPECT_EQ(select.getColumn(0).getInt(), 2);
    ASSERT_FALSE(select.executeStep());
    EXPECT_THROW(select.getColumn(0), fn::RangeException);
    ASSERT_TRUE(select.executeStep()); // From the start again.
    EXPECT_EQ(select.getColumn(0).getInt(), 1);
    Statement by(database, "select value from t where id = ?");
    for (const auto& [id, value] : { std::pair(1, "a"), std::pair(2, "b") }) {
        by.bindAt(1, id); // The second time in the midst of the first result.
        ASSERT_TRUE(by.executeStep());
        EXPECT_EQ(by.getColumn(0).getText(), value);
    }
}

TEST_F(SQLite, LetsGoOfItsLocksWhenAStatementEndsOrGoes)
{
    database.execute("insert into t values (1, 'a'), (2, 'b')");
    Statement select(database, "select id from t");
    ASSERT_TRUE(select.executeStep());
    EXPECT_NE(failureOf([&] { database.execute("vacuum"); }).code, 0);
    while (select.executeStep()) { }
    database.execute("vacuum");
    ASSERT_TRUE(select.executeStep());
    select.reset();
    database.execute("vacuum");
}

TEST_F(SQLite, KeepsAStatementUsableWhenItsDatabaseHasGone)
{
    database.execute("insert into t values (1, 'a')");
    std::optional<Database> second(std::in_place, path, readWriteCreate);
    Statement select(*second, "select value from t");
    std::optional<Transaction> transaction(std::in_place, *second);
    second.reset();
    ASSERT_TRUE(select.executeStep());
    EXPECT_EQ(select.getColumn(0).getText(), "a");
    select.reset();
    transaction.reset();
    select = Statement(database, "select 2"); // Closes the other connection.
    ASSERT_TRUE(select.executeStep());
    select.reset();
    EXPECT_EQ(database.execute("insert into t values (2, 'b')"), 1);
}

TEST_F(SQLite, RollsBackWhatWasNotCommitted)
{
    {
        Transaction transaction(database);
        database.execute("insert into t values (1, 'a')");
        EXPECT_EQ(failureOf([&] { Transaction nested(database); }).code, Error);
    }
    EXPECT_EQ(firstInt("select count(*) from t"), 0);
    try {
        Transaction transaction(database);
        database.execute("insert into t values (1, 'a')");
        database.execute("insert or rollback into t values (1, 'b')"); // SQLite itself rolls back here.
    } catch (const sqlite::SQLiteException&) {
    }
    EXPECT_EQ(firstInt("select count(*) from t"), 0);
    std::optional<Transaction> first(std::in_place, database);
    first->commit();
    Transaction second(database);
    first.reset(); // Has nothing to do with the second any more.
    database.execute("insert into t values (2, 'b')");
    second.commit();
    EXPECT_EQ(failureOf([&] { second.commit(); }).code, Error);
    EXPECT_EQ(firstInt("select count(*) from t"), 1);
}

TEST_F(SQLite, WaitsForAnotherConnectionUpToTheTimeout)
{
    Database other(path, readWriteCreate);
    other.setBusyTimeout(fn::Duration(0));
    std::optional<Transaction> writing(std::in_place, database);
    const auto failure = failureOf([&] { other.execute("insert into t values (1, 'a')"); });
    EXPECT_EQ(failure.code, Busy);
    EXPECT_EQ(failure.message, "database is locked");
    EXPECT_EQ(failureOf([&] { Transaction second(other); }).code, Busy) << "Not only where it writes.";

    // A reader keeps a commit waiting; the transaction stays open and can be committed later.
    database.setBusyTimeout(fn::Duration(0));
    database.execute("insert into t values (1, 'a')");
    Statement reading(other, "select count(*) from t");
    ASSERT_TRUE(reading.executeStep());
    EXPECT_EQ(failureOf([&] { writing->commit(); }).code, Busy);
    reading.reset();
    writing->commit();

    // With a timeout the second writer gets its turn as soon as the first has finished.
    writing.emplace(database);
    other.setBusyTimeout(fn::Duration::seconds(60));
    std::atomic<bool> started = false;
    std::thread waiting([&] {
        started = true;
        other.execute("insert into t values (2, 'b')");
    });
    while (!started) std::this_thread::yield();
    writing.reset();
    waiting.join();
    EXPECT_EQ(firstInt("select count(*) from t"), 2);
}

// One connection, several threads: each must see its own errors and counts.
TEST_F(SQLite, KeepsThreadsApartThatShareAConnection)
{
    const auto work = [&](int base) {
        for (int i = 0; i < 200; ++i) {
            Statement insert(database, "insert into t values (?1, ?1), (?2, ?2)");
            insert.bindAt(1, base + 2 * i);
            insert.bindAt(2, base + 2 * i + 1);
            ASSERT_EQ(insert.execute(), 2);
            ASSERT_EQ(failureOf([&] { insert.executeStep(); }).message, "UNIQUE constraint failed: t.id");
        }
    };
    database.execute("pragma synchronous = off; pragma journal_mode = memory");
    std::thread first(work, 1'000'000);
    std::thread second(work, 2'000'000);
    first.join();
    second.join();
    EXPECT_EQ(firstInt("select count(*) from t"), 800);
}

TEST_F(SQLite, SaysWhatIsWrongWithAFile)
{
    const auto messageOf = [](const fn::String& file, int code) {
        try {
            Database broken(file, readWriteCreate);
            Statement select(broken, "select count(*) from t");
            select.executeStep();
        } catch (const sqlite::SQLiteException& e) {
            EXPECT_EQ(*e.find<fn::ErrorCodeInfo>() & 0xFF, code);
            EXPECT_EQ(*e.find<fn::PathInfo>(), file);
            return e.displayText();
        }
        return fn::String("nothing");
    };
    database.execute("insert into t (value) values (randomblob(20000))");
    auto content = test::readFile(path);
    std::fill(content.begin() + 100, content.end(), '\x7f'); // The header stays, the pages do not.
    test::writeFile(folder.file("malformed.db"), content);
    EXPECT_EQ(messageOf(folder.file("malformed.db"), Corrupt), "database disk image is malformed");
    test::writeFile(folder.file("text.db"), std::string(5000, 'x'));
    EXPECT_EQ(messageOf(folder.file("text.db"), NotADatabase), "file is not a database");
    EXPECT_EQ(messageOf(folder.file("none/new.db"), CannotOpen), "unable to open database file");
    EXPECT_EQ(messageOf(folder.file("") + std::string_view("a.db\0x", 6), CannotOpen), "The path holds a NUL byte");
    EXPECT_FALSE(fn::File(folder.file("a.db")).exists());
}

} // namespace
