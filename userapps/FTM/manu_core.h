#pragma once
// INI texts written by the test station. TFTP server task only.

struct ST_TFTP_ERROR;

/// Applies an INI text; resets the configuration and reboots the device as the text asks. Returns
/// null, or the error record.
ST_TFTP_ERROR* FtmProcessINI(char* pacIni, const char* pzFileName);
