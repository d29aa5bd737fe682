#pragma once
// Reads of the configuration store on the station's behalf. TFTP server task only.

#include "userapps/FTM/FTM_Handles.h"

/// Whether the session was opened; says so on the console and in the error record when it was not.
bool isUsable(const StoreSession& session);
/// The same for a table that was read under that name.
bool isUsable(const TableSnapshot& snapshot, const char* table);
