-- The sample mapping between the unit's device objects and SNMP objects.
--
-- The agent reads both tables whole and by column position: keep the order of the columns.
-- Mind the numbers: asnType and access are hexadecimal for scalars and decimal for table cells.
-- The columns are explained in README.md.

BEGIN;

-- objId is the primary key and always written as four upper-case digits: a second row for one
-- object, which the agent would drop without a word, fails here.
CREATE TABLE SNMP_GENERAL_OBJ_TABLE (
  objId      TEXT NOT NULL PRIMARY KEY
             CHECK (objId GLOB '[0-9A-F][0-9A-F][0-9A-F][0-9A-F]'),  -- hex
  auxByte    TEXT NOT NULL,  -- dec
  magic      TEXT NOT NULL,  -- dec
  asnType    TEXT NOT NULL,  -- hex: 2 INTEGER, 4 OCTET STRING
  access     TEXT NOT NULL,  -- hex: 1 read-only, 2 read-write
  suffix1    TEXT NOT NULL,  -- dec
  suffix2    TEXT NOT NULL,  -- dec
  suffix3    TEXT NOT NULL,  -- dec
  suffix4    TEXT NOT NULL,  -- dec
  covMethod  TEXT NOT NULL,  -- hex: exponent digit, then three digits of the method
  selectFlag TEXT NOT NULL,  -- hex
  name       TEXT NOT NULL,
  auxWord    TEXT NOT NULL,  -- hex
  UNIQUE (suffix1, suffix2, suffix3, suffix4)
);

CREATE TABLE SNMP_TABLE_OBJ_TABLE (
  objId        TEXT NOT NULL PRIMARY KEY
               CHECK (objId GLOB '[0-9A-F][0-9A-F][0-9A-F][0-9A-F]'),  -- hex
  auxByte      TEXT NOT NULL,  -- dec
  "column"     TEXT NOT NULL,  -- dec, from 2: column 1 is the row's index
  asnType      TEXT NOT NULL,  -- dec: 2 INTEGER, 4 OCTET STRING
  access       TEXT NOT NULL,  -- dec: 3 read-write, any other read-only
  ancestorNode TEXT NOT NULL,
  covMethod    TEXT NOT NULL,  -- hex
  selectFlag   TEXT NOT NULL,  -- hex
  name         TEXT NOT NULL,
  "row"        TEXT NOT NULL,  -- dec, 1 to 32
  tableAttr    TEXT NOT NULL,  -- dec
  auxWord      TEXT NOT NULL,  -- hex
  extraWord    TEXT NOT NULL,  -- hex
  UNIQUE (ancestorNode, "row", "column")
);

-- objId, auxByte, magic, asnType, access, suffix 1 to 4, covMethod, selectFlag, name, auxWord
INSERT INTO SNMP_GENERAL_OBJ_TABLE VALUES
-- Identity
('0004', 0, 0, '4', '1', 1, 1, 1, 1,  '0000', '0', 'Software Version', '0000'),
('0005', 0, 0, '4', '1', 1, 1, 1, 2,  '0000', '0', 'Device Model', '0000'),
('0006', 0, 0, '4', '1', 1, 1, 1, 3,  '0000', '0', 'Serial Number', '0000'),
('0007', 0, 0, '4', '1', 1, 1, 1, 4,  '0000', '0', 'Hardware Version', '0000'),
('0008', 0, 0, '4', '1', 1, 1, 1, 5,  '0000', '0', 'Device Description', '0000'),
('0600', 0, 0, '4', '2', 1, 1, 1, 6,  '0000', '0', 'Site Name', '0000'),
('0601', 0, 0, '4', '2', 1, 1, 1, 7,  '0000', '0', 'Site Location', '0000'),
('0602', 0, 0, '4', '2', 1, 1, 1, 8,  '0000', '0', 'Site Contact', '0000'),
('0603', 0, 0, '4', '2', 1, 1, 1, 9,  '0000', '0', 'Cabinet Label', '0000'),
('0102', 0, 0, '2', '1', 1, 1, 1, 10, '0000', '0', 'Device Id', '0000'),
('0103', 0, 0, '2', '2', 1, 1, 1, 11, '0007', '0', 'Device Role', '0000'),
-- Network
('0151', 0, 0, '4', '1', 1, 1, 2, 1,  '0001', '0', 'IP Address', '0000'),
('0152', 0, 0, '4', '1', 1, 1, 2, 2,  '0001', '0', 'Subnet Mask', '0000'),
('0153', 0, 0, '4', '1', 1, 1, 2, 3,  '0002', '0', 'Default Gateway', '0000'),
('0154', 0, 0, '4', '1', 1, 1, 2, 4,  '0000', '0', 'MAC Address', '0000'),
('0155', 0, 0, '2', '2', 1, 1, 2, 5,  '0000', '0', 'Management Port', '0000'),
('0156', 0, 0, '2', '2', 1, 1, 2, 6,  '0008', '0', 'Management VLAN', '0000'),
('0157', 0, 0, '4', '1', 1, 1, 2, 7,  '0001', '0', 'Modem IP Address', '0000'),
-- Notifications and clock
('0611', 0, 0, '2', '2', 1, 1, 3, 1,  '0000', '0', 'Notification Version', '0000'),
('0FFA', 0, 0, '2', '2', 1, 1, 3, 2,  '0000', '0', 'Heartbeat Interval', '0000'),
('0FFB', 0, 0, '2', '2', 1, 1, 3, 3,  '0000', '0', 'Heartbeat Switch', '0000'),
('0612', 0, 0, '4', '1', 1, 1, 3, 4,  '0003', '0', 'Local Date And Time', '0000'),
-- Environment
('0301', 1, 0, '2', '1', 1, 1, 4, 1,  '0000', '0', 'Board Temperature', '0000'),
('0302', 1, 0, '2', '1', 1, 1, 4, 2,  '0000', '0', 'Outdoor Temperature', '0000'),
('0303', 1, 0, '4', '1', 1, 1, 4, 3,  '1004', '0', 'PA Temperature', '0000'),
('0304', 1, 0, '4', '2', 1, 1, 4, 4,  '1004', '0', 'High Temperature Threshold', '0000'),
('0305', 1, 0, '2', '2', 1, 1, 4, 5,  '1000', '0', 'Low Temperature Threshold', '0000'),
('0306', 1, 0, '2', '1', 1, 1, 4, 6,  '0000', '0', 'Door State', '0000'),
('0307', 1, 0, '2', '1', 1, 1, 4, 7,  '0000', '0', 'Fan 1 State', '0000'),
('0308', 1, 0, '2', '1', 1, 1, 4, 8,  '0000', '0', 'Fan 2 State', '0000'),
('0309', 1, 0, '2', '1', 1, 1, 4, 9,  '0000', '0', 'Fan Speed', '0000'),
('030A', 1, 0, '2', '2', 1, 1, 4, 10, '0000', '0', 'Fan Speed Setpoint', '0000'),
('030B', 1, 0, '4', '1', 1, 1, 4, 11, '3004', '0', 'Supply Voltage', '0000'),
('030C', 1, 0, '4', '1', 1, 1, 4, 12, '3004', '0', 'Supply Current', '0000'),
('030D', 1, 0, '2', '1', 1, 1, 4, 13, '0009', '0', 'Humidity', '0000'),
-- Alarm and event objects: their names go into the notifications
('0401', 2, 0, '2', '1', 1, 1, 5, 1,  '0000', '1', 'Door Open Alarm', '0001'),
('0402', 2, 0, '2', '1', 1, 1, 5, 2,  '0000', '1', 'Fan Failure Alarm', '0001'),
('0403', 2, 0, '2', '1', 1, 1, 5, 3,  '0000', '1', 'Over Temperature Alarm', '0002'),
('0404', 2, 0, '2', '1', 1, 1, 5, 4,  '0000', '1', 'PA Failure Alarm', '0003'),
('0405', 2, 0, '2', '1', 1, 1, 5, 5,  '0000', '1', 'Power Supply Alarm', '0003'),
('0406', 2, 0, '2', '1', 1, 1, 5, 6,  '0000', '1', 'Optical Link Alarm', '0003'),
('0407', 2, 0, '2', '1', 1, 1, 5, 7,  '0000', '1', 'VSWR Alarm', '0002'),
('0408', 2, 0, '2', '1', 1, 1, 5, 8,  '0000', '1', 'Remote Unit Change', '0001'),
('0409', 2, 0, '2', '1', 1, 1, 5, 9,  '0000', '1', 'General Event', '0001'),
-- Service
('0701', 0, 0, '2', '1', 1, 1, 6, 1,  '0000', '0', 'Up Time', '0000'),
('0702', 0, 0, '2', '1', 1, 1, 6, 2,  '0005', '0', 'Boot Count', '0000'),
('0703', 0, 0, '2', '1', 1, 1, 6, 3,  '0006', '0', 'Firmware Checksum', '0000'),
('0704', 0, 0, '2', '1', 1, 1, 6, 4,  '000B', '0', 'Link Error Count', '0000'),
('0705', 0, 0, '2', '2', 1, 1, 6, 5,  '000C', '0', 'Reset Command', '0000'),
('0706', 0, 0, '2', '1', 1, 1, 6, 6,  '0000', '0', 'Status Word', '0000'),
('0707', 0, 0, '2', '2', 1, 1, 6, 7,  '000B', '0', 'Test Pattern', '0000'),
-- Downlink
('0501', 3, 0, '2', '2', 1, 2, 1, 1,  '0000', '0', 'Downlink Switch', '0000'),
('0502', 3, 0, '2', '2', 1, 2, 1, 2,  '0000', '0', 'Downlink Attenuation', '0000'),
('0503', 3, 0, '4', '2', 1, 2, 1, 3,  '1004', '0', 'Downlink Fine Attenuation', '0000'),
('0504', 3, 0, '4', '1', 1, 2, 1, 4,  '1004', '0', 'Downlink Output Power', '0000'),
('0505', 3, 0, '4', '1', 1, 2, 1, 5,  '2004', '0', 'Downlink Input Power', '0000'),
('0506', 3, 0, '2', '2', 1, 2, 1, 6,  '0000', '0', 'Downlink Gain Offset', '0000'),
('0507', 3, 0, '2', '1', 1, 2, 1, 7,  '000A', '0', 'Downlink Gain', '0000'),
('0508', 3, 0, '2', '2', 1, 2, 1, 8,  '2000', '0', 'Downlink Power Limit', '0000'),
-- Uplink
('0511', 4, 0, '2', '2', 1, 2, 2, 1,  '0000', '0', 'Uplink Switch', '0000'),
('0512', 4, 0, '2', '2', 1, 2, 2, 2,  '0000', '0', 'Uplink Attenuation', '0000'),
('0513', 4, 0, '4', '2', 1, 2, 2, 3,  '1004', '0', 'Uplink Fine Attenuation', '0000'),
('0514', 4, 0, '4', '1', 1, 2, 2, 4,  '1004', '0', 'Uplink Noise Level', '0000'),
('0515', 4, 0, '4', '1', 1, 2, 2, 5,  '3004', '0', 'Uplink Input Power', '0000'),
-- Frequencies
('0521', 3, 0, '2', '2', 1, 2, 3, 1,  '0000', '0', 'Downlink Center Frequency', '0000'),
('0522', 4, 0, '2', '2', 1, 2, 3, 2,  '0000', '0', 'Uplink Center Frequency', '0000'),
('0523', 3, 0, '4', '1', 1, 2, 3, 3,  '3004', '0', 'Downlink Start Frequency', '0000'),
('0524', 3, 0, '4', '1', 1, 2, 3, 4,  '3004', '0', 'Downlink Stop Frequency', '0000'),
('0525', 3, 0, '2', '2', 1, 2, 3, 5,  '3000', '0', 'Bandwidth', '0000'),
('0526', 3, 0, '2', '1', 1, 2, 3, 6,  '0000', '0', 'Frequency Error', '0000'),
('0527', 3, 0, '4', '2', 1, 2, 3, 7,  '0004', '0', 'Optical Loss', '0000');

-- Each table has 32 rows, and each of its columns 32 consecutive object ids: a column's first one
-- is the table's plus 32 for every column before it.
CREATE TEMPORARY TABLE table_column (
  ancestorNode, tableAttr, firstObjId, "column", asnType, access, covMethod, name);

INSERT INTO table_column VALUES
-- Remote units
('.10.1', 1, 0x1000, 2, 4, 1, '0000', 'RU %d Name'),
('.10.1', 1, 0x1000, 3, 2, 1, '0000', 'RU %d State'),
('.10.1', 1, 0x1000, 4, 2, 1, '0000', 'RU %d Temperature'),
('.10.1', 1, 0x1000, 5, 2, 3, '1000', 'RU %d Attenuation'),
('.10.1', 1, 0x1000, 6, 4, 1, '1004', 'RU %d Output Power'),
('.10.1', 1, 0x1000, 7, 4, 1, '0001', 'RU %d IP Address'),
('.10.1', 1, 0x1000, 8, 4, 3, '0000', 'RU %d Label'),
('.10.1', 1, 0x1000, 9, 2, 3, '0000', 'RU %d Switch'),
-- Channels
('.10.2', 2, 0x2000, 2, 4, 3, '0000', 'Channel %d Name'),
('.10.2', 2, 0x2000, 3, 2, 3, '0000', 'Channel %d Switch'),
('.10.2', 2, 0x2000, 4, 2, 3, '0000', 'Channel %d Downlink Frequency'),
('.10.2', 2, 0x2000, 5, 4, 1, '3004', 'Channel %d Uplink Frequency'),
('.10.2', 2, 0x2000, 6, 2, 3, '0000', 'Channel %d Gain'),
('.10.2', 2, 0x2000, 7, 4, 3, '1004', 'Channel %d Attenuation'),
('.10.2', 2, 0x2000, 8, 2, 1, '0000', 'Channel %d Power');

-- The agent serves the table whose cells come first with its first handler.
INSERT INTO SNMP_TABLE_OBJ_TABLE
WITH RECURSIVE table_row(number) AS (SELECT 1 UNION ALL SELECT number + 1 FROM table_row LIMIT 32)
SELECT printf('%04X', firstObjId + 32 * ("column" - 2) + number - 1), 0, "column", asnType, access,
       ancestorNode, covMethod, '0', printf(name, number), number, tableAttr, '0000', '0000'
FROM table_column, table_row
ORDER BY ancestorNode, number, "column";

COMMIT;
