-- What a unit holds when it leaves the factory.

INSERT INTO "ProductionData" VALUES ('M77-210010-04', '1234', '02:1a:2b:00:00:01', '01252002', 'A', '0000');
INSERT INTO "AppSwInfo" VALUES ('Gateway application', 'Quorvane', '01.05.06', '2009-03-17', '01.05.06-b214');
INSERT INTO "ProductType" VALUES ('Quorvane Dual Connect', 'M77');
INSERT INTO "ProductInfo" VALUES ('factory.ini', '1.0', 'M77-210010');

INSERT INTO "Xcvr" VALUES (
  'UP', '0', '0', 'FAST', 'FAST', '0', '0', '0', '0', '0', '0', '0', '18.5', '10.0', '9.2', '12.0', '8128000', '896000',
  '18.9', '12.2', '0', '0', '0', '0', '0', '0', '0', '0', '8128000', '896000', '0', '0', 'G.DMT', 'BDCM', 'ADSL2+ transceiver',
  'A2pB023k.d20k');
INSERT INTO "XcvrTable" VALUES ('AUTO', 'AUTO');
INSERT INTO "LedTable" DEFAULT VALUES;

INSERT INTO "NetDev" VALUES
  ('eth0', '1204876', '8312', '0', '0', '0', '0', '0', '12', '984210', '7105', '0', '0', '0', '0', '0', '0'),
  ('eth1', '640118', '4410', '0', '3', '0', '0', '0', '4', '512760', '3902', '0', '1', '0', '0', '0', '0'),
  ('wl0', '88214', '702', '2', '1', '0', '0', '0', '0', '120448', '815', '4', '5', '0', '0', '0', '0'),
  ('nas0', '0', '0', '0', '0', '0', '0', '0', '0', '0', '0', '0', '0', '0', '0', '0', '0');
INSERT INTO "BcmAtm" VALUES (
  'atm0', '1', '0', '35', '0', '0', '0', '0', '0', '0', '0', '0', '0', '0', '0', '0', '0', '0', '0', '0', '0', '0',
  '0', '0', '0', '0', '0', '0', '0');
INSERT INTO "VccStat" VALUES ('nas0', '0', '35', '02:1a:2b:00:00:01');
INSERT INTO "FlashErr" VALUES ('OK', 'OK', 'OK', 'NO', 'NO');
INSERT INTO "SwitchStat" VALUES
  ('up', '100', 'full', '3902', '4410'),
  ('down', '0', 'half', '0', '0'),
  ('down', '0', 'half', '0', '0'),
  ('down', '0', 'half', '0', '0'),
  ('up', '1000', 'full', '7105', '8312');
INSERT INTO "WlanStations" VALUES ('0');
INSERT INTO "WlanConfig" VALUES ('1', 'Quorvane', '6');
INSERT INTO "ProductInterfaces" VALUES
  ('LAN', 'Ethernet', 'eth0'),
  ('LAN', 'Omnilane', 'eth1'),
  ('LAN', 'Wireless', 'wl0'),
  ('WAN', 'DSL', 'nas0');

INSERT INTO flash VALUES (0xFFFF, 0xFFFF, 'FTM 01.05.06', 'normal');

INSERT INTO gpio (point, name, kind) VALUES
  (1, 'ePowerGrnLed', 'led'),
  (2, 'ePowerRedLed', 'led'),
  (3, 'eDSLGrnLed', 'led'),
  (4, 'eDSLRedLed', 'led'),
  (5, 'eInternetGrnLed', 'led'),
  (6, 'eInternetRedLed', 'led'),
  (7, 'eWirelessGrnLed', 'led'),
  (8, 'eUSBGrnLed', 'led'),
  (9, 'eUSBRedLed', 'led'),
  (10, 'eVoice1GrnLed', 'led'),
  (11, 'eVoice2GrnLed', 'led'),
  (12, 'eEth0GrnLed', 'led'),
  (13, 'eEth1GrnLed', 'led'),
  (14, 'eEth2GrnLed', 'led'),
  (15, 'eEth3GrnLed', 'led'),
  (22, 'eVoiceRly1', 'relay'),
  (23, 'eVoiceRly2', 'relay'),
  (32, 'eResetSwInput', 'input'),
  (41, 'eDSLPair', 'output'),
  (42, 'eECLed', 'led'),
  (43, 'eECSetupSwInput', 'input');
-- What is left of the numbers up to eMaxUserIOPoint is wired to test pads.
INSERT INTO gpio (point, name, kind)
  WITH RECURSIVE number(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM number WHERE n < 72)
  SELECT n, 'eTestPad' || n, 'output' FROM number WHERE n NOT IN (SELECT point FROM gpio);
INSERT INTO gpio_driver VALUES (0);
INSERT INTO line VALUES ('up', 0);

INSERT INTO switch_ports VALUES (1, 100), (2, 100), (3, 100), (4, 100), (5, 1000);
INSERT INTO net_devices VALUES ('eth0', 0x1003, 5), ('eth1', 0x1003, 1);
INSERT INTO traffic VALUES (0, 0);
INSERT INTO wire VALUES (0, 0, 0, 0, 1, 0);
INSERT INTO radio VALUES ('wl0', '02:1a:2b:00:00:02', 1, 'Quorvane', -1, 6, 6, 6, 'US');
