// What can break here: an error swallowed, a lock kept that nobody needs, a value that comes back as another.
#include "sqlite/database.h"
#include "sqlite/sqlite_exception.h"
#include "sqlite/statement.h"
#include "sqlite/transaction.h"
#include "support/temporary_folder.h"
#include <gtest/gtest.h>
#include <optional>

namespace {

using sqlite::Column;
using sqlite::Database;
using sqlite::Statement;
using sqlite::Transaction;

constexpr int readWriteCreate = 6;
enum Code { Error = 1, Range = 25 };

struct SQLite : testing::Test {
    SQLite() { database.execute("create table t (id integer primary key, value unique)"); }

    /// What the call throws: the primary code and the message; 0 if it throws nothing.
    template <typename Call> std::pair<int, std::string> failureOf(const Call& call)
    {
        try {
            call();
        } catch (const sqlite::SQLiteException& e) {
            EXPECT_TRUE(e.find<fn::PathInfo>()->startsWith(folder.file("")));
            return { *e.find<fn::ErrorCodeInfo>() & 0xFF, e.displayText().toStdString() };
        }
        return {};
    }

    int count()
    {
        Statement statement(database, "select count(*) from t");
        EXPECT_TRUE(statement.executeStep());
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
    const auto roundTrip = [&](const auto& value, const char* type, auto get) {
        insert.bindAt(1, value);
        EXPECT_EQ(insert.execute(), 1);
        ASSERT_TRUE(select.executeStep());
        EXPECT_EQ(select.getColumn(1).getText(), type);
        EXPECT_EQ(get(select.getColumn(0)), value);
        EXPECT_EQ(select.getColumn(0).isNull(), std::string_view(type) == "null");
        EXPECT_FALSE(select.executeStep());
    };
    roundTrip(INT64_MIN, "integer", [](Column c) {
        EXPECT_EQ(c.getInt(7), 7); // Not the lower half of the number.
        return c.getInt64();
    });
    for (const auto& text : { fn::String(), fn::String(std::string_view("a\0b", 3)), fn::String("\xFF\xFE") })
        roundTrip(text, "text", [](Column c) { return c.getText(); });
    for (const auto& bytes : { fn::ByteArray(), fn::ByteArray(1'000'000u) }) // No bytes are not NULL.
        roundTrip(bytes, "blob", [](Column c) { return c.getBlob(); });
    roundTrip(nullptr, "null", [](Column c) {
        EXPECT_TRUE(c.getInt64(5) == 5 && c.getText().empty() && c.getBlob().empty());
        return nullptr;
    });
    EXPECT_EQ(failureOf([&] { insert.bindAt(2, 1); }).first, Range);
}

TEST_F(SQLite, CountsTheRowsThatItChangesAndStopsAtTheFirstStatementThatFails)
{
    EXPECT_EQ(database.execute("insert into t values (1, 1), (2, 2); -- two\n insert into t values (3, 3);\n"), 3);
    EXPECT_EQ(database.execute("create table log (id integer)"), 0); // Not the 1 of the insertion before.
    EXPECT_EQ(failureOf([&] { database.execute("insert into t values (4, 4); bad; insert into t values (5, 5)"); }),
        std::pair(int(Error), std::string("near \"bad\": syntax error")));
    const fn::String cut = std::string_view("delete from t\0 where id = 7", 27);
    for (const auto& notOne : { fn::String("select 1; delete from t"), fn::String(" -- nothing"), cut })
        EXPECT_NE(failureOf([&] { Statement(database, notOne); }).first, 0) << notOne;
    EXPECT_EQ(count(), 4);
}

TEST_F(SQLite, ReadsColumnsOfTheCurrentRowOnlyAndLetsGoOfItsLocksBehindTheLast)
{
    database.execute("insert into t values (1, 'a'), (2, 'b')");
    Statement select(database, "select id from t where id > ? order by id");
    EXPECT_THROW(select.getColumn(0), fn::RangeException);
    for (const int first : { 1, 2 }) {
        select.bindAt(1, first - 1); // The second time in the midst of the first result.
        ASSERT_TRUE(select.executeStep());
        EXPECT_EQ(select.getColumn(0).getInt(), first);
        for (const int column : { -1, 1 }) EXPECT_THROW(select.getColumn(column), fn::RangeException);
    }
    EXPECT_NE(failureOf([&] { database.execute("vacuum"); }).first, 0);
    ASSERT_FALSE(select.executeStep());
    database.execute("vacuum");
    ASSERT_TRUE(select.executeStep()); // From the start again.
    select.reset();
    database.execute("vacuum");
}

TEST_F(SQLite, KeepsAStatementUsableWhenItsDatabaseHasGone)
{
    std::optional<Database> second(std::in_place, path, readWriteCreate);
    Statement select(*second, "select 7");
    std::optional<Transaction> transaction(std::in_place, *second);
    second.reset();
    ASSERT_TRUE(select.executeStep());
    EXPECT_EQ(select.getColumn(0).getInt(), 7);
    transaction.reset();
    select = Statement(database, "select 2"); // Closes the other connection.
    EXPECT_EQ(database.execute("insert into t values (2, 'b')"), 1);
}

} // namespace
