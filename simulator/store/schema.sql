-- State of a unit. The tables of the configuration store come first, their columns in the order of the store's
-- positions; all their cells are text. Data row r of a table is its r-th row in the order of rowid.

CREATE TABLE "ProductionData" (
  "ModelNum" TEXT NOT NULL DEFAULT '',  -- 0
  "SerialNum" TEXT NOT NULL DEFAULT '', -- 1
  "MacAddr" TEXT NOT NULL DEFAULT '',   -- 2
  "Date" TEXT NOT NULL DEFAULT '',      -- 3
  "Revision" TEXT NOT NULL DEFAULT '',  -- 4
  "E164" TEXT NOT NULL DEFAULT ''       -- 5
);

CREATE TABLE "AppSwInfo" (
  "Name" TEXT NOT NULL DEFAULT '',            -- 0
  "Vendor" TEXT NOT NULL DEFAULT '',          -- 1
  "Version" TEXT NOT NULL DEFAULT '',         -- 2
  "BuildDate" TEXT NOT NULL DEFAULT '',       -- 3
  "ReleaseBuildVersion" TEXT NOT NULL DEFAULT '' -- 4
);

CREATE TABLE "ProductType" (
  "Description" TEXT NOT NULL DEFAULT '', -- 0
  "Family" TEXT NOT NULL DEFAULT ''       -- 1
);

CREATE TABLE "ProductInfo" (
  "IniFileName" TEXT NOT NULL DEFAULT '', -- 0
  "IniVersion" TEXT NOT NULL DEFAULT '',  -- 1
  "SoftwareLoad" TEXT NOT NULL DEFAULT '' -- 2
);

CREATE TABLE "Xcvr" (
  "State" TEXT NOT NULL DEFAULT '',              -- 0
  "ActivityDownstream" TEXT NOT NULL DEFAULT '', -- 1
  "ActivityUpstream" TEXT NOT NULL DEFAULT '',   -- 2
  "PathDownstream" TEXT NOT NULL DEFAULT '',     -- 3
  "PathUpstream" TEXT NOT NULL DEFAULT '',       -- 4
  "FecDownstream" TEXT NOT NULL DEFAULT '',      -- 5
  "FecUpstream" TEXT NOT NULL DEFAULT '',        -- 6
  "CrcDownstream" TEXT NOT NULL DEFAULT '',      -- 7
  "CrcUpstream" TEXT NOT NULL DEFAULT '',        -- 8
  "HecUpstream" TEXT NOT NULL DEFAULT '',        -- 9
  "HecDownstream" TEXT NOT NULL DEFAULT '',      -- 10
  "Retrains" TEXT NOT NULL DEFAULT '',           -- 11
  "AttenDownstream" TEXT NOT NULL DEFAULT '',    -- 12
  "AttenUpstream" TEXT NOT NULL DEFAULT '',      -- 13
  "MarginDownstream" TEXT NOT NULL DEFAULT '',   -- 14
  "MarginUpstream" TEXT NOT NULL DEFAULT '',     -- 15
  "SpeedDownstream" TEXT NOT NULL DEFAULT '',    -- 16, bit/s
  "SpeedUpstream" TEXT NOT NULL DEFAULT '',      -- 17, bit/s
  "PowerDownstream" TEXT NOT NULL DEFAULT '',    -- 18
  "PowerUpstream" TEXT NOT NULL DEFAULT '',      -- 19
  "SignalLoss" TEXT NOT NULL DEFAULT '',         -- 20
  "FrameLoss" TEXT NOT NULL DEFAULT '',          -- 21
  "PowerLoss" TEXT NOT NULL DEFAULT '',          -- 22
  "ErroredSeconds" TEXT NOT NULL DEFAULT '',     -- 23
  "SevereErroredSeconds" TEXT NOT NULL DEFAULT '', -- 24
  "UnavailableSeconds" TEXT NOT NULL DEFAULT '', -- 25
  "CellsDownstream" TEXT NOT NULL DEFAULT '',    -- 26
  "CellsUpstream" TEXT NOT NULL DEFAULT '',      -- 27
  "MaxSpeedDownstream" TEXT NOT NULL DEFAULT '', -- 28, bit/s
  "MaxSpeedUpstream" TEXT NOT NULL DEFAULT '',   -- 29, bit/s
  "DelayDownstream" TEXT NOT NULL DEFAULT '',    -- 30
  "DelayUpstream" TEXT NOT NULL DEFAULT '',      -- 31
  "Modulation" TEXT NOT NULL DEFAULT '',         -- 32
  "ChipVendor" TEXT NOT NULL DEFAULT '',         -- 33
  "Description" TEXT NOT NULL DEFAULT '',        -- 34
  "Version" TEXT NOT NULL DEFAULT ''             -- 35
);

CREATE TABLE "XcvrTable" (
  "MultiHybrid" TEXT NOT NULL DEFAULT '', -- 0
  "Psd" TEXT NOT NULL DEFAULT ''          -- 1
);

CREATE TABLE "LedTable" (
  "Power" TEXT NOT NULL DEFAULT '',    -- 0
  "Dsl" TEXT NOT NULL DEFAULT '',      -- 1
  "Internet" TEXT NOT NULL DEFAULT '', -- 2
  "Usb" TEXT NOT NULL DEFAULT '',      -- 3
  "Ethernet" TEXT NOT NULL DEFAULT '', -- 4
  "Wireless" TEXT NOT NULL DEFAULT '', -- 5
  "Wps" TEXT NOT NULL DEFAULT ''       -- 6
);

-- The columns of the kernel's device table.
CREATE TABLE "NetDev" (
  "Interface" TEXT NOT NULL DEFAULT '',    -- 0
  "RxBytes" TEXT NOT NULL DEFAULT '',      -- 1
  "RxPackets" TEXT NOT NULL DEFAULT '',    -- 2
  "RxErrs" TEXT NOT NULL DEFAULT '',       -- 3
  "RxDrop" TEXT NOT NULL DEFAULT '',       -- 4
  "RxFifo" TEXT NOT NULL DEFAULT '',       -- 5
  "RxFrame" TEXT NOT NULL DEFAULT '',      -- 6
  "RxCompressed" TEXT NOT NULL DEFAULT '', -- 7
  "RxMulticast" TEXT NOT NULL DEFAULT '',  -- 8
  "TxBytes" TEXT NOT NULL DEFAULT '',      -- 9
  "TxPackets" TEXT NOT NULL DEFAULT '',    -- 10
  "TxErrs" TEXT NOT NULL DEFAULT '',       -- 11
  "TxDrop" TEXT NOT NULL DEFAULT '',       -- 12
  "TxFifo" TEXT NOT NULL DEFAULT '',       -- 13
  "TxColls" TEXT NOT NULL DEFAULT '',      -- 14
  "TxCarrier" TEXT NOT NULL DEFAULT '',    -- 15
  "TxCompressed" TEXT NOT NULL DEFAULT ''  -- 16
);

CREATE TABLE "BcmAtm" (
  "Interface" TEXT NOT NULL DEFAULT '',        -- 0
  "Port" TEXT NOT NULL DEFAULT '',             -- 1
  "Vpi" TEXT NOT NULL DEFAULT '',              -- 2
  "Vci" TEXT NOT NULL DEFAULT '',              -- 3
  "InCells" TEXT NOT NULL DEFAULT '',          -- 4
  "InOctets" TEXT NOT NULL DEFAULT '',         -- 5
  "OutCells" TEXT NOT NULL DEFAULT '',         -- 6
  "OutOctets" TEXT NOT NULL DEFAULT '',        -- 7
  "InErrors" TEXT NOT NULL DEFAULT '',         -- 8
  "InUnknownCircuit" TEXT NOT NULL DEFAULT '', -- 9
  "InHecErrors" TEXT NOT NULL DEFAULT '',      -- 10
  "InInvalidCells" TEXT NOT NULL DEFAULT '',   -- 11
  "InPtiErrors" TEXT NOT NULL DEFAULT '',      -- 12
  "InIdleCells" TEXT NOT NULL DEFAULT '',      -- 13
  "InOamCells" TEXT NOT NULL DEFAULT '',       -- 14
  "InRmCells" TEXT NOT NULL DEFAULT '',        -- 15
  "OutErrors" TEXT NOT NULL DEFAULT '',        -- 16
  "OutOamCells" TEXT NOT NULL DEFAULT '',      -- 17
  "OutRmCells" TEXT NOT NULL DEFAULT '',       -- 18
  "Aal5InOctets" TEXT NOT NULL DEFAULT '',     -- 19
  "Aal5OutOctets" TEXT NOT NULL DEFAULT '',    -- 20
  "Aal5InPackets" TEXT NOT NULL DEFAULT '',    -- 21
  "Aal5OutPackets" TEXT NOT NULL DEFAULT '',   -- 22
  "Aal5InErrors" TEXT NOT NULL DEFAULT '',     -- 23
  "Aal5OutErrors" TEXT NOT NULL DEFAULT '',    -- 24
  "Aal5CrcErrors" TEXT NOT NULL DEFAULT '',    -- 25
  "Aal5Oversized" TEXT NOT NULL DEFAULT '',    -- 26
  "InDiscards" TEXT NOT NULL DEFAULT '',       -- 27
  "OutDiscards" TEXT NOT NULL DEFAULT ''       -- 28
);

CREATE TABLE "VccStat" (
  "Interface" TEXT NOT NULL DEFAULT '', -- 0
  "Vpi" TEXT NOT NULL DEFAULT '',       -- 1
  "Vci" TEXT NOT NULL DEFAULT '',       -- 2
  "MacAddr" TEXT NOT NULL DEFAULT ''    -- 3
);

CREATE TABLE "FlashErr" (
  "DevType" TEXT NOT NULL DEFAULT '',     -- 0
  "Write" TEXT NOT NULL DEFAULT '',       -- 1
  "Erase" TEXT NOT NULL DEFAULT '',       -- 2
  "CorruptFile" TEXT NOT NULL DEFAULT '', -- 3
  "FileCrcError" TEXT NOT NULL DEFAULT '' -- 4
);

CREATE TABLE "SwitchStat" (
  "Link" TEXT NOT NULL DEFAULT '',      -- 0, "up" or "down"
  "Speed" TEXT NOT NULL DEFAULT '',     -- 1, Mbit/s
  "Duplex" TEXT NOT NULL DEFAULT '',    -- 2
  "TxPackets" TEXT NOT NULL DEFAULT '', -- 3
  "RxPackets" TEXT NOT NULL DEFAULT ''  -- 4
);

CREATE TABLE "WlanStations" (
  "Stations" TEXT NOT NULL DEFAULT '' -- 0
);

CREATE TABLE "WlanConfig" (
  "Enabled" TEXT NOT NULL DEFAULT '', -- 0
  "Ssid" TEXT NOT NULL DEFAULT '',    -- 1
  "Channel" TEXT NOT NULL DEFAULT ''  -- 2
);

CREATE TABLE "ProductInterfaces" (
  "Type" TEXT NOT NULL DEFAULT '',     -- 0
  "NickName" TEXT NOT NULL DEFAULT '', -- 1
  "Interface" TEXT NOT NULL DEFAULT '' -- 2
);

-- The board and the unit itself.

CREATE TABLE flash (
  boot_mode INTEGER NOT NULL,
  ftm_mode INTEGER NOT NULL,
  ftm_version TEXT NOT NULL,
  next_boot TEXT NOT NULL -- kind of the next boot: 'normal' or 'safe boot'
);

CREATE TABLE gpio (
  point INTEGER PRIMARY KEY,
  name TEXT NOT NULL,
  kind TEXT NOT NULL,              -- 'led', 'relay', 'output' or 'input'
  value INTEGER NOT NULL DEFAULT 0 -- of an LED: what it shows in factory test mode
);

CREATE TABLE gpio_driver (test_mode INTEGER NOT NULL); -- 1: the driver leaves the LEDs to the test station

-- By the unit's clock: a line that trains comes up a while after since_ms.
CREATE TABLE line (
  state TEXT NOT NULL, -- 'down', 'training' or 'up'
  since_ms INTEGER NOT NULL
);

-- USB storage devices plugged in.
CREATE TABLE usb_devices (
  host INTEGER PRIMARY KEY, -- number of the SCSI host
  vendor TEXT NOT NULL,
  model TEXT NOT NULL,
  rev TEXT NOT NULL,
  type TEXT NOT NULL, -- the kernel's word
  ansi_rev INTEGER NOT NULL
);

-- A port's link, and its speed and counts while that is up, are in "SwitchStat", port N in data row N - 1.
CREATE TABLE switch_ports (
  port INTEGER PRIMARY KEY,
  megabits INTEGER NOT NULL -- while the link is up
);

CREATE VIEW switch_links AS
  SELECT row_number() OVER (ORDER BY rowid) AS port, rowid AS store_row, "Link" = 'up' AS is_up, "Speed" AS megabits
  FROM "SwitchStat";

CREATE TABLE net_devices (
  name TEXT PRIMARY KEY,
  flags INTEGER NOT NULL, -- of the kernel, without IFF_RUNNING, which follows the link
  port INTEGER NOT NULL   -- of the switch, whose link it has
) WITHOUT ROWID;

CREATE TABLE traffic (
  is_on INTEGER NOT NULL,
  moved_until_ms INTEGER NOT NULL -- time on the clock up to which the counters have moved
);

CREATE TABLE radio (
  interface TEXT NOT NULL,
  mac TEXT NOT NULL,
  is_up INTEGER NOT NULL,
  ssid TEXT NOT NULL,
  ssid_length INTEGER NOT NULL, -- that the driver reports; -1: that of the SSID
  hw_channel INTEGER NOT NULL,
  target_channel INTEGER NOT NULL,
  scan_channel INTEGER NOT NULL,
  country TEXT NOT NULL
);

CREATE TABLE radio_variables (
  name TEXT PRIMARY KEY,
  value TEXT NOT NULL -- its bytes in hexadecimal
) WITHOUT ROWID;

-- What the wire does to the datagrams of the service; percentages are whole numbers.
CREATE TABLE wire (
  loss INTEGER NOT NULL,
  duplicate INTEGER NOT NULL,
  delay_ms INTEGER NOT NULL,
  jitter_ms INTEGER NOT NULL,
  seed INTEGER NOT NULL,
  era INTEGER NOT NULL -- counts the changes
);

CREATE TABLE faults (name TEXT PRIMARY KEY) WITHOUT ROWID;

CREATE TABLE messages (id INTEGER PRIMARY KEY AUTOINCREMENT, subject TEXT NOT NULL, body TEXT NOT NULL);

CREATE TABLE journal (id INTEGER PRIMARY KEY, time_ms INTEGER NOT NULL, kind TEXT NOT NULL, text TEXT NOT NULL);
