#include "SnmpDataBase.h"

#include <sqlite3.h>

#include <chrono>
#include <memory>
#include <thread>

#include "Sqlite3.h"
#include "TestSupport.h"

namespace norva::test {
namespace {

const std::string kMakeTables =
    "CREATE TABLE SNMP_GENERAL_OBJ_TABLE"
    " (objId, aux, magic, type, access, s1, s2, s3, s4, method, flag, name, word);"
    "CREATE TABLE SNMP_TABLE_OBJ_TABLE"
    " (objId, aux, col, type, access, node, method, flag, name, row, attr, word, extra);";

using Numbers = std::vector<std::uint32_t>;

/// A catalogue loaded from a database that a test fills first.
class SnmpDataBaseTest : public testing::Test {
 protected:
  static std::string scalar(const std::string& values) {
    return "INSERT INTO SNMP_GENERAL_OBJ_TABLE VALUES (" + values + ");";
  }
  static std::string cell(const std::string& values) {
    return "INSERT INTO SNMP_TABLE_OBJ_TABLE VALUES (" + values + ");";
  }
  /// A scalar, and a cell that is named like its id: with what tells them apart.
  static std::string named(const std::string& objId, const std::string& name) {
    return scalar(objId + ",0,0,2,1,1,1,1,1,0,0," + name + ",0");
  }
  static std::string cellAt(const std::string& objId, const std::string& node, int row,
                            const std::string& column) {
    return cell("'" + objId + "',0," + column + ",2,1,'" + node + "',0,'1','" + objId + "'," +
                std::to_string(row) + ",7,0,0");
  }
  /// Makes both tables, runs `sql`, loads; returns what the load printed.
  std::string load(const std::string& sql) {
    const std::string all = kMakeTables + sql;
    sqlite3* db = nullptr;
    EXPECT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db, all.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << all;
    sqlite3_close(db);
    return printed([&] { catalogue = std::make_unique<SnmpDataBase>(path.c_str()); });
  }
  std::string nameOf(std::uint16_t objId) const {
    ObjInfo info;
    return catalogue->findObjInfo(objId, info) == 0 ? info.name : "not found";
  }
  Numbers scalarFields(std::uint16_t objId) const {
    SnmpObjRecord o;
    EXPECT_EQ(catalogue->getObjRecord(objId, o), 0);
    const auto& [s1, s2, s3, s4] = o.oidSuffix;
    return {o.objId, o.info.auxByte,   o.magic,        o.info.asnType,   o.info.access, s1, s2, s3,
            s4,      o.info.covMethod, o.info.auxWord, o.info.selectFlag};
  }
  Numbers cellFields(std::uint32_t column, unsigned row) const {
    SnmpTableObjRecord c;
    EXPECT_EQ(catalogue->getSnmpTableOid(".1", column, row, c), 0);
    return Numbers{c.objId,           c.info.auxByte, c.column,         c.info.asnType,
                   c.info.access,     c.row,          c.info.covMethod, c.info.auxWord,
                   c.info.selectFlag, c.tableAttr,    c.extraWord};
  }

  const TemporaryDirectory directory;
  const std::string path = directory.path + "/map.db";
  std::unique_ptr<SnmpDataBase> catalogue;
};

TEST_F(SnmpDataBaseTest, EachColumnHasItsBaseAndItsWidth) {
  EXPECT_EQ(load(scalar("'10','10','10','10','10','10','11','12','13','10','10','n','10'") +
                 cell("'0x11','10','10','10','10','.1','10','10','c','10','10','10','10'") +
                 scalar("'f80ba','300','257','10002','x','4294967297','','0','-1','12004','101',"
                        "'n','10001'") +
                 cell("'10001','256','4294967298','65538','65539','.1','f1004','1ff','c','258',"
                      "'257','0','1f00f'")),
            "");
  EXPECT_EQ(scalarFields(0x10), (Numbers{16, 10, 10, 16, 16, 10, 11, 12, 13, 16, 16, 16}));
  EXPECT_EQ(cellFields(10, 10), (Numbers{17, 10, 10, 10, 10, 10, 16, 16, 16, 10, 16}));
  EXPECT_EQ(scalarFields(0x80BA),
            (Numbers{0x80BA, 44, 1, 2, 0, 1, 0, 0, 0xFFFFFFFF, 0x2004, 1, 1}));
  EXPECT_EQ(cellFields(2, 2), (Numbers{1, 0, 2, 2, 3, 2, 0x1004, 0, 0xFF, 1, 0xF00F}));
}

TEST_F(SnmpDataBaseTest, ANullNameRepeatsTheOneBefore) {
  EXPECT_EQ(load(named("1", "NULL") + named("2", "'A'") + named("NULL", "'B'") +
                 named("3", "NULL") + cell("11,0,2,2,1,'.1',0,0,NULL,1,0,0,0")),
            "SNMP_GENERAL_OBJ_TABLE row 3: column 0 is NULL, row not used\n");
  EXPECT_EQ(nameOf(1), "");
  EXPECT_EQ(nameOf(3), "B") << "also of a row that is not used";
  EXPECT_EQ(nameOf(0x11), "") << "the scalars' last name does not reach the cells";
}

TEST_F(SnmpDataBaseTest, TheFirstRowOfAKeyWinsAndScalarsComeFirst) {
  EXPECT_EQ(load(named("2", "'second'") + named("1", "'first'") + named("1", "'dropped'") +
                 cellAt("1", ".1", 1, "1") + cellAt("a1", ".1", 1, "2") +
                 cellAt("a2", ".1", 1, "2") + cell("'a1',0,3,2,1,'.1',0,0,'later',1,0,0,0")),
            "");
  EXPECT_EQ(nameOf(1), "first") << "an id of both tables is answered from the scalars";
  EXPECT_EQ(nameOf(0xA1), "a1") << "the first cell that carried the id";
  EXPECT_EQ(nameOf(0xA2), "a1") << "its key was taken by another object";
  EXPECT_EQ(nameOf(0xA3), "not found");
  EXPECT_EQ(cellFields(2, 0x101)[0], 0xA1U) << "low 8 bits of the row";
  std::string name;
  EXPECT_EQ(catalogue->getObjName(1, name), 0);
  SnmpTableObjRecord missing;
  EXPECT_EQ(printed([&] { EXPECT_EQ(catalogue->getObjName(0xA1, name), -1); }),
            "get name is first\n");  // cells have no name here
  EXPECT_EQ(printed([&] { EXPECT_EQ(catalogue->getSnmpTableOid(".1", 2, 33, missing), -1); }),
            " getSnmpTableOid .12100000002\n ");
  std::vector<SnmpObjRecord> objects(1);
  EXPECT_EQ(catalogue->getAllObjects(objects), 0);
  ASSERT_EQ(objects.size(), 3U) << "appended";
  EXPECT_EQ(objects[1].objId, 1);
  EXPECT_EQ(objects[2].objId, 2);
}

TEST_F(SnmpDataBaseTest, TablesListTheirFirstRowInColumnOrder) {
  EXPECT_EQ(tableKey(".3", 0x120, 0xABCDEF01), ".320abcdef01");
  load(cellAt("1", ".2", 1, "10") + cellAt("2", ".2", 1, "2") + cellAt("3", ".2", 1, "16") +
       cellAt("4", ".2", 1, "1") + cellAt("5", ".2", 2, "3") + cellAt("6", ".2", 1, "0") +
       cellAt("7", ".2", 1, "4294967295") + cellAt("8", ".2", 32, "1") + cellAt("9", ".1", 1, "5") +
       cell("'a',0,6,2,1,'.1',0,0,'n',1,8,0,0"));
  std::vector<SnmpTableObjRecord> cells;
  for (const char* node : {".2", ".9", ".1"}) {
    EXPECT_EQ(catalogue->getTableColumns(node, cells), 0);
  }
  Numbers columns;
  for (const auto& found : cells) columns.push_back(found.column);
  EXPECT_EQ(columns, (Numbers{1, 2, 10, 16, 5, 6}));
  std::vector<AncestorNodeEntry> nodes(5);
  ASSERT_EQ(catalogue->getTableAncestorNodes(nodes), 0);
  ASSERT_EQ(nodes.size(), 2U) << "replaced";
  EXPECT_EQ(nodes[0].ancestorNode, ".2");
  EXPECT_EQ(nodes[1].ancestorNode, ".1");
  EXPECT_EQ(nodes[1].tableAttr, 7) << "of the table's first row";
}

TEST_F(SnmpDataBaseTest, ALockedDatabaseIsWaitedForOnceAndTheReasonTold) {
  load(named("'0101'", "'here'"));
  sqlite3* holder = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &holder), SQLITE_OK);
  const auto run = [holder](const char* sql) {
    sqlite3_exec(holder, sql, nullptr, nullptr, nullptr);
  };
  run("BEGIN EXCLUSIVE");
  {
    const std::jthread writer([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      run("COMMIT");
    });
    EXPECT_EQ(printed([&] { catalogue = std::make_unique<SnmpDataBase>(path.c_str()); }), "");
  }
  run("BEGIN EXCLUSIVE");
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(printed([&] { catalogue = std::make_unique<SnmpDataBase>(path.c_str()); }),
            " subsite 0 get SNMP_GENERAL_OBJ_TABLE error\n"
            "SNMP_GENERAL_OBJ_TABLE: database is locked\n"
            " subsite 0 get SNMP_TABLE_OBJ_TABLE error\n"
            "SNMP_TABLE_OBJ_TABLE: database is locked\n");
  const auto waited = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(waited, Sqlite3::kPatience);
  EXPECT_LT(waited, 2 * Sqlite3::kPatience) << "5 s for both";
  sqlite3_close(holder);
}

TEST_F(SnmpDataBaseTest, ToolsOfTheUnitFindChannelsFlagsAndRows) {
  load(named("'0102'", "'a'") + cellAt("2001", ".1", 1, "2") + cellAt("2002", ".1", 1, "3") +
       cellAt("2003", ".1", 2, "2") + cellAt("2004", ".1", 255, "2") +
       "CREATE TABLE TABLE_SLOT_FREQ_OBJ (a, b, c);"
       "INSERT INTO TABLE_SLOT_FREQ_OBJ VALUES ('34', '0A0B', '12');"
       "CREATE TABLE TABLE_OBJ_GENUS_GROUP (objId, channelNum);"
       "INSERT INTO TABLE_OBJ_GENUS_GROUP VALUES ('0102', '34');");
  Sqlite3 adapter(path.c_str());
  EXPECT_EQ(catalogue->loadSlotFreq(adapter), 0);
  ASSERT_EQ(adapter.open(), 0);
  catalogue->loadGenusGroup(adapter, 0x0102, 0x12);
  catalogue->loadGenusGroup(adapter, 0x0999, 0x12);
  std::uint16_t frequency = 1;
  EXPECT_EQ(catalogue->getSlotFreq(0x0102, frequency), 0);
  EXPECT_EQ(frequency, 0x0A0B);
  EXPECT_EQ(catalogue->getSlotFreq(0x0999, frequency), -1);  // channel 0 has no frequency
  EXPECT_EQ(frequency, 0);
  std::vector<std::uint16_t> flagged;
  catalogue->listFlaggedObjects(flagged);
  EXPECT_EQ(flagged, (std::vector<std::uint16_t>{0x2001, 0x2002, 0x2003, 0x2004}));
  EXPECT_EQ(catalogue->countTableRows(".1"), 2);  // neither the first cell nor those of row 255
}

}  // namespace
}  // namespace norva::test
