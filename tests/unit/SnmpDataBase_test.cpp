#include "SnmpDataBase.h"

#include <fstream>
#include <memory>

#include "Sqlite3.h"
#include "TestSupport.h"

namespace norva {
namespace {

using test::printed;

/// A catalogue loaded from a database that a test fills first.
class SnmpDataBaseTest : public testing::Test {
 protected:
  static std::string scalar(const std::string& values) {
    return "INSERT INTO SNMP_GENERAL_OBJ_TABLE VALUES (" + values + ");";
  }
  static std::string cell(const std::string& values) {
    return "INSERT INTO SNMP_TABLE_OBJ_TABLE VALUES (" + values + ");";
  }
  /// A cell with the fields that place it, the others 0.
  static std::string cellAt(const std::string& objId, const std::string& node, int row,
                            long long column, const std::string& flag = "0") {
    return cell("'" + objId + "',0," + std::to_string(column) + ",2,1,'" + node + "',0,'" + flag +
                "','" + objId + "'," + std::to_string(row) + ",0,0,0");
  }
  /// Makes both tables, runs `sql`, loads; returns what the load printed.
  std::string load(const std::string& sql) {
    test::runSql(path, std::string(test::kMakeScalarTable) + test::kMakeCellTable + sql);
    return loadFile(path);
  }
  std::string loadFile(const std::string& file) {
    return printed([&] { catalogue = std::make_unique<SnmpDataBase>(file.c_str()); });
  }
  std::string nameOf(std::uint16_t objId) const {
    ObjInfo info;
    return catalogue->findObjInfo(objId, info) == 0 ? info.name : "not found";
  }
  std::vector<std::uint32_t> columnsOf(const std::string& node) const {
    std::vector<SnmpTableObjRecord> cells;
    EXPECT_EQ(catalogue->getTableColumns(node, cells), 0);
    std::vector<std::uint32_t> columns;
    for (const auto& found : cells) columns.push_back(found.column);
    return columns;
  }

  const test::TemporaryDirectory directory;
  const std::string path = directory.file("map.db");
  std::unique_ptr<SnmpDataBase> catalogue;
};

TEST_F(SnmpDataBaseTest, WhatCannotBeReadIsPrintedAndStaysEmpty) {
  const test::StatementMayFail allowed;
  const std::string noFile = directory.file("missing/map.db");
  const std::string noTables = directory.file("empty.db");
  const std::string garbage = directory.file("garbage.db");
  std::ofstream(garbage) << std::string(4096, 'x');
  const std::string noScalars = " subsite 0 get SNMP_GENERAL_OBJ_TABLE error\n";
  const std::string noCells = " subsite 0 get SNMP_TABLE_OBJ_TABLE error\n";
  // The second loader finds the handle of the first one's failed open.
  EXPECT_EQ(loadFile(noFile), "ERROR: open file " + noFile +
                                  " failed! \ninitSnmpObjOid subsite 0 db open error\n" + noCells);
  EXPECT_EQ(loadFile(noTables), noScalars + noCells);
  EXPECT_EQ(loadFile(garbage), noScalars + noCells);
  std::vector<SnmpObjRecord> objects;
  EXPECT_EQ(catalogue->getAllObjects(objects), 0);
  EXPECT_TRUE(objects.empty());
  std::vector<AncestorNodeEntry> nodes;
  EXPECT_EQ(catalogue->getTableAncestorNodes(nodes), -1);

  test::runSql(path, test::kMakeCellTable + cellAt("0001", ".1", 1, 1));
  EXPECT_EQ(loadFile(path), noScalars) << "the other table is still loaded";
  EXPECT_EQ(nameOf(1), "0001");
}

TEST_F(SnmpDataBaseTest, EachColumnHasItsBase) {
  EXPECT_EQ(load(scalar("'10','10','10','10','10','10','11','12','13','10','10','n','10'") +
                 cell("'0x11','10','10','10','10','.1','10','10','c','10','10','10','10'")),
            "");
  SnmpObjRecord object;
  ASSERT_EQ(catalogue->getObjRecord(0x10, object), 0);
  EXPECT_EQ(object.objId, 0x10);
  EXPECT_EQ(object.info.auxByte, 10);
  EXPECT_EQ(object.magic, 10);
  EXPECT_EQ(object.info.asnType, 0x10);
  EXPECT_EQ(object.info.access, 0x10);
  EXPECT_EQ(object.oidSuffix, (OidSuffix{10, 11, 12, 13}));
  EXPECT_EQ(object.info.covMethod, 0x10);
  EXPECT_EQ(object.info.selectFlag, 0x10);
  EXPECT_EQ(object.info.name, "n");
  EXPECT_EQ(object.info.auxWord, 0x10);
  EXPECT_EQ(object.extra, "");

  SnmpTableObjRecord found;
  ASSERT_EQ(catalogue->getSnmpTableOid(".1", 10, 10, found), 0);
  EXPECT_EQ(found.objId, 0x11);
  EXPECT_EQ(found.info.auxByte, 10);
  EXPECT_EQ(found.column, 10U);
  EXPECT_EQ(found.info.asnType, 10);
  EXPECT_EQ(found.info.access, 10);
  EXPECT_EQ(found.ancestorNode, ".1");
  EXPECT_EQ(found.info.covMethod, 0x10);
  EXPECT_EQ(found.info.selectFlag, 0x10);
  EXPECT_EQ(found.info.name, "c");
  EXPECT_EQ(found.row, 10);
  EXPECT_EQ(found.tableAttr, 10);
  EXPECT_EQ(found.info.auxWord, 0x10);
  EXPECT_EQ(found.extraWord, 0x10);
}

TEST_F(SnmpDataBaseTest, NumbersAreCutToTheirFieldAndTextReadsAsZero) {
  load(
      scalar("'f80ba','300','257','10002','x','4294967297','','0','-1','12004','101','n','10001'") +
      cell("'10001','256','4294967298','65538','65539','.1','f1004','1ff','c','258','257','0','"
           "1f00f'"));
  SnmpObjRecord object;
  ASSERT_EQ(catalogue->getObjRecord(0x80BA, object), 0);
  EXPECT_EQ(object.info.auxByte, 44);
  EXPECT_EQ(object.magic, 1);
  EXPECT_EQ(object.info.asnType, 2);
  EXPECT_EQ(object.info.access, 0);
  EXPECT_EQ(object.oidSuffix, (OidSuffix{1, 0, 0, 0xFFFFFFFF}));
  EXPECT_EQ(object.info.covMethod, 0x2004);
  EXPECT_EQ(object.info.selectFlag, 1);
  EXPECT_EQ(object.info.auxWord, 1);

  SnmpTableObjRecord found;
  ASSERT_EQ(catalogue->getSnmpTableOid(".1", 2, 2, found), 0);
  EXPECT_EQ(found.objId, 1);
  EXPECT_EQ(found.info.auxByte, 0);
  EXPECT_EQ(found.info.asnType, 2);
  EXPECT_EQ(found.info.access, 3);
  EXPECT_EQ(found.info.covMethod, 0x1004);
  EXPECT_EQ(found.info.selectFlag, 0xFF);
  EXPECT_EQ(found.tableAttr, 1);
  EXPECT_EQ(found.extraWord, 0xF00F);
}

TEST_F(SnmpDataBaseTest, ANullNameRepeatsTheOneBefore) {
  const std::string scalarEnd = ",0,0,2,1,1,1,1,1,0,0,";
  const auto cells = [](const std::string& objId, const std::string& column, const char* name) {
    return cell(objId + ",0," + column + ",2,1,'.1',0,0," + name + ",1,0,0,0");
  };
  load(scalar("1" + scalarEnd + "NULL,0") + scalar("2" + scalarEnd + "'A',0") +
       scalar("3" + scalarEnd + "NULL,0") + cells("11", "1", "NULL") + cells("12", "2", "'B'") +
       cells("13", "3", "NULL"));
  EXPECT_EQ(nameOf(1), "");
  EXPECT_EQ(nameOf(2), "A");
  EXPECT_EQ(nameOf(3), "A");
  EXPECT_EQ(nameOf(0x11), "") << "the scalars' last name does not reach the cells";
  EXPECT_EQ(nameOf(0x12), "B");
  EXPECT_EQ(nameOf(0x13), "B");
}

TEST_F(SnmpDataBaseTest, TheFirstRowOfAKeyWinsAndScalarsComeFirst) {
  const auto named = [](const std::string& objId, const std::string& name) {
    return scalar(objId + ",0,0,2,1,1,1,1,1,0,0,'" + name + "',0");
  };
  EXPECT_EQ(load(named("2", "second") + named("1", "first") + named("1", "dropped") +
                 cellAt("1", ".1", 1, 1) + cellAt("a1", ".1", 1, 2) + cellAt("a2", ".1", 1, 2) +
                 cell("'a1',0,3,2,1,'.1',0,0,'later',1,0,0,0")),
            "");
  EXPECT_EQ(nameOf(1), "first") << "an id of both tables is answered from the scalars";
  EXPECT_EQ(nameOf(0xA1), "a1") << "the first cell that carried the id";
  EXPECT_EQ(nameOf(0xA2), "a1") << "its key was taken by another object";
  EXPECT_EQ(nameOf(0xA3), "not found");
  SnmpTableObjRecord found;
  ASSERT_EQ(catalogue->getSnmpTableOid(".1", 2, 1, found), 0);
  EXPECT_EQ(found.objId, 0xA1);

  std::vector<SnmpObjRecord> objects(1);
  EXPECT_EQ(catalogue->getAllObjects(objects), 0);
  ASSERT_EQ(objects.size(), 3U) << "appended";
  EXPECT_EQ(objects[1].objId, 1);
  EXPECT_EQ(objects[2].objId, 2);
}

TEST_F(SnmpDataBaseTest, TablesListTheirFirstRowInColumnOrder) {
  EXPECT_EQ(tableKey("x", 1, 2), "x0100000002");
  EXPECT_EQ(tableKey(".3", 0x120, 0xABCDEF01), ".320abcdef01");

  load(cellAt("1", ".2", 1, 10) + cellAt("2", ".2", 1, 2) + cellAt("3", ".2", 1, 16) +
       cellAt("4", ".2", 1, 1) + cellAt("5", ".2", 2, 3) + cellAt("6", ".2", 1, 0) +
       cellAt("7", ".2", 1, 4294967295) + cellAt("8", ".2", 32, 1) +
       cell("9,0,5,2,1,'.1',0,0,'n',1,7,0,0") + cell("'a',0,6,2,1,'.1',0,0,'n',1,8,0,0"));
  EXPECT_EQ(columnsOf(".2"), (std::vector<std::uint32_t>{1, 2, 10, 16}));
  EXPECT_EQ(columnsOf(".1"), (std::vector<std::uint32_t>{5, 6}));
  EXPECT_EQ(columnsOf(".9"), std::vector<std::uint32_t>{});

  std::vector<AncestorNodeEntry> nodes(5);
  ASSERT_EQ(catalogue->getTableAncestorNodes(nodes), 0);
  ASSERT_EQ(nodes.size(), 2U) << "replaced";
  EXPECT_EQ(nodes[0].ancestorNode, ".2");
  EXPECT_EQ(nodes[1].ancestorNode, ".1");
  EXPECT_EQ(nodes[1].tableAttr, 7) << "of the table's first row";

  // Behind row 1, column 2: columns 10, 16 and 4294967295 of row 1, then rows 2 and 32.
  EXPECT_EQ(catalogue->countTableRows(".2"), 5);
  EXPECT_EQ(catalogue->countTableRows(".9"), 0);
}

TEST_F(SnmpDataBaseTest, LookupsAnswerOrSayWhatTheyMiss) {
  load(scalar("1,0,0,2,1,1,1,1,1,0,'f','Gain',0") + cellAt("b", ".1", 1, 2, "1") +
       cellAt("a", ".1", 1, 3, "1") + cellAt("c", ".1", 1, 4));
  std::string name = "before";
  int result = 0;
  EXPECT_EQ(printed([&] { result = catalogue->getObjName(0x0B, name); }), "get name is before\n")
      << "cells have no name here";
  EXPECT_EQ(result, -1);
  EXPECT_EQ(name, "before");
  EXPECT_EQ(printed([&] { result = catalogue->getObjName(1, name); }), "");
  EXPECT_EQ(result, 0);
  EXPECT_EQ(name, "Gain");

  SnmpTableObjRecord found;
  EXPECT_EQ(printed([&] { result = catalogue->getSnmpTableOid(".1", 2, 33, found); }),
            " getSnmpTableOid .12100000002\n ");
  EXPECT_EQ(result, -1);
  EXPECT_EQ(catalogue->getSnmpTableOid(".1", 2, 0x101, found), 0) << "low 8 bits of the row";
  EXPECT_EQ(found.objId, 0x0B);

  ObjInfo info;
  SnmpObjRecord object;
  EXPECT_EQ(printed([&] { result = catalogue->findObjInfo(0x7777, info); }), "");
  EXPECT_EQ(result, -1);
  EXPECT_EQ(catalogue->getObjRecord(0x0B, object), -1);
  std::vector<std::uint16_t> flagged;
  EXPECT_EQ(catalogue->listFlaggedObjects(flagged), 0);
  EXPECT_EQ(flagged, (std::vector<std::uint16_t>{1, 0x0B, 0x0A}));
}

TEST_F(SnmpDataBaseTest, ARowWithAHoleIsReportedAndLeftOut) {
  const std::string output =
      load(scalar("1,0,0,NULL,1,1,1,1,1,0,0,'n',0") + scalar("2,0,0,2,1,1,1,1,1,0,0,'kept',0") +
           cell("3,0,1,2,1,NULL,0,0,'n',1,0,0,0") + cellAt("4", ".1", 1, 2));
  EXPECT_NE(output.find("SNMP_GENERAL_OBJ_TABLE"), std::string::npos) << output;
  EXPECT_NE(output.find("SNMP_TABLE_OBJ_TABLE"), std::string::npos) << output;
  EXPECT_EQ(nameOf(1), "not found");
  EXPECT_EQ(nameOf(2), "kept");
  EXPECT_EQ(nameOf(3), "not found");
  EXPECT_EQ(nameOf(4), "4");
}

TEST_F(SnmpDataBaseTest, ATableWithTooFewColumnsIsReportedAndLeftOut) {
  test::runSql(path,
               "CREATE TABLE SNMP_GENERAL_OBJ_TABLE (objId, name);"
               "INSERT INTO SNMP_GENERAL_OBJ_TABLE VALUES (1, 'n');" +
                   (test::kMakeCellTable + cellAt("2", ".1", 1, 1)));
  EXPECT_NE(loadFile(path).find("SNMP_GENERAL_OBJ_TABLE"), std::string::npos);
  EXPECT_EQ(nameOf(1), "not found");
  EXPECT_EQ(nameOf(2), "2");
}

TEST_F(SnmpDataBaseTest, FindsTheFrequencyOfAnObjectsChannel) {
  const test::StatementMayFail allowed;
  load(
      "CREATE TABLE TABLE_SLOT_FREQ_OBJ (low, freq, high);"
      "INSERT INTO TABLE_SLOT_FREQ_OBJ VALUES ('5','0384','2'), ('5','1','2'), ('0','77','0');"
      "CREATE TABLE TABLE_OBJ_GENUS_GROUP (objId, channelNum);"
      "INSERT INTO TABLE_OBJ_GENUS_GROUP VALUES ('010A', '105');");
  std::uint16_t frequency = 1;
  EXPECT_EQ(catalogue->getSlotFreq(0x010A, frequency), -1);
  EXPECT_EQ(frequency, 0);

  Sqlite3 adapter(path.c_str());
  EXPECT_EQ(catalogue->loadSlotFreq(adapter), 0);
  ASSERT_EQ(adapter.open(), 0);
  EXPECT_EQ(catalogue->loadGenusGroup(adapter, 0x010A, 2), 0);
  EXPECT_EQ(catalogue->loadGenusGroup(adapter, 0x010B, 2), 0);  // not in the table: channel 0
  EXPECT_EQ(catalogue->getSlotFreq(0x010A, frequency), 0);
  EXPECT_EQ(frequency, 0x0384) << "the first row of a key wins";
  EXPECT_EQ(catalogue->getSlotFreq(0x010B, frequency), 0);
  EXPECT_EQ(frequency, 0x77);

  test::runSql(directory.file("other.db"), "CREATE TABLE t (a);");
  Sqlite3 without(directory.file("other.db").c_str());
  int result = 0;
  EXPECT_EQ(printed([&] { result = catalogue->loadSlotFreq(without); }), " db get table error\n");
  EXPECT_EQ(result, -1);
}

}  // namespace
}  // namespace norva
