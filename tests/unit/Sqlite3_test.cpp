#include "Sqlite3.h"

#include "TestSupport.h"

namespace norva {
namespace {

using test::printed;

class Sqlite3Test : public testing::Test {
 protected:
  Sqlite3Test() {
    test::runSql(path,
                 "CREATE TABLE t (a, b); INSERT INTO t VALUES (1, 'x'), (2, NULL);"
                 "CREATE TABLE none (a);");
  }

  const test::TemporaryDirectory directory;
  const std::string path = directory.file("map.db");
  char** result = nullptr;
  int rows = -1;
  int columns = -1;
};

TEST_F(Sqlite3Test, OpensAndClosesAnyNumberOfTimes) {
  Sqlite3 adapter(path.c_str());
  EXPECT_EQ(adapter.close(), 0);
  EXPECT_EQ(adapter.open(), 0);
  EXPECT_EQ(adapter.open(), 0);
  EXPECT_EQ(adapter.close(), 0);
  EXPECT_EQ(adapter.close(), 0);
  EXPECT_EQ(adapter.open(), 0);
}

TEST_F(Sqlite3Test, AFailedOpenIsReportedOnce) {
  const std::string missing = directory.file("missing/map.db");
  Sqlite3 adapter(missing.c_str());
  int first = 0;
  int second = -1;
  EXPECT_EQ(printed([&] { first = adapter.open(); }),
            "ERROR: open file " + missing + " failed! \n");
  EXPECT_EQ(first, -1);
  EXPECT_EQ(printed([&] { second = adapter.open(); }), "");
  EXPECT_EQ(second, 0);
}

TEST_F(Sqlite3Test, ReadsATableWithItsColumnNames) {
  Sqlite3 adapter(path.c_str());
  ASSERT_EQ(adapter.open(), 0);
  ASSERT_EQ(adapter.getTable("t", &result, &rows, &columns), 0);
  EXPECT_EQ(rows, 2);
  EXPECT_EQ(columns, 2);
  const char* const expected[] = {"a", "b", "1", "x", "2", nullptr};
  for (int i = 0; i < 6; ++i) EXPECT_STREQ(result[i], expected[i]) << i;
  adapter.freeTable(result);

  ASSERT_EQ(adapter.getTable("none", &result, &rows, &columns), 0);
  EXPECT_EQ(rows, 0);
  adapter.freeTable(result);
}

TEST_F(Sqlite3Test, RunsStatements) {
  Sqlite3 adapter(path.c_str());
  ASSERT_EQ(adapter.open(), 0);
  EXPECT_EQ(adapter.exec("DELETE FROM t WHERE a = 1"), 0);
  ASSERT_EQ(adapter.query("SELECT a FROM t", &result, &rows, &columns), 0);
  EXPECT_EQ(rows, 1);
  EXPECT_STREQ(result[1], "2");
  adapter.freeTable(result);
}

TEST_F(Sqlite3Test, OnlyAFailingQueryIsPrinted) {
  const test::StatementMayFail allowed;
  Sqlite3 adapter(path.c_str());
  ASSERT_EQ(adapter.open(), 0);
  int status[4] = {};
  const std::string longName(300, 'n');
  EXPECT_EQ(printed([&] {
              status[0] = adapter.getTable("missing", &result, &rows, &columns);
              status[1] = adapter.getTable(longName.c_str(), &result, &rows, &columns);
              status[2] = adapter.exec("nonsense");
              status[3] = adapter.query("SELECT z FROM t", &result, &rows, &columns);
            }),
            "SQL ERROR  [SELECT z FROM t] no such column: z\n");
  for (const int s : status) EXPECT_EQ(s, -1);
}

}  // namespace
}  // namespace norva
