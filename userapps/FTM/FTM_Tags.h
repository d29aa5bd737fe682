#pragma once
// One handler per virtual file, and the tag parsers. TFTP server task only. Handlers that return int
// return 0 for success; otherwise the error record says what is wrong.

#include "userapps/FTM/xml_parser.h"

/// Serialises a tree into a new buffer for the caller; `*ppOutFile` must be null. `*pOutSize` counts
/// the terminating NUL. Returns 0, or -1.
int TFTP_createXmlFile(char** ppOutFile, unsigned long* pOutSize, const ST_XML_ELEMENT* pXmlResp);

// Modem information file.

int TFTP_processGetModemInfo(char** ppOutFile, unsigned long* pOutFileSize);
int TFTP_processPutModemInfo(char* pszXmlData);
/// Fills the children of "MODEM_INFO" from the store. Returns 0, or -1 when a table could not be read.
int XMLS_GetModemInfoCM(ST_XML_ELEMENT* pXmlInfo);
/// Converts a MAC address text of 17 characters, any separators, to 6 bytes. Returns 0, or -1.
int mac_addrSep(char* macAddr, const char* ansiiHex);

extern char caE_164Strng[80]; ///< the last E.164 number written

// Test configuration file.

extern ST_XML_ELEMENT* pstTestModeCfgElmt; ///< tree of the file, null until it is first used

/// Builds the tree from its template. The caller owns it.
ST_XML_ELEMENT* CreateTestModeCfgXml();
/// Element at a path of up to three tags below `pXmlTop`; a null tag ends the path early. Null, with
/// "Xml File InValid" in the error record, when there is none.
ST_XML_ELEMENT* GetElmtPtr(ST_XML_ELEMENT* pXmlTop, const char* pcL1, const char* pcL2, const char* pcL3);
