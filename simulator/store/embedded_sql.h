#pragma once
// The SQL files of this folder, built into the library.

namespace gateway {
extern const char* const schemaSql;
extern const char* const factorySql;
} // namespace gateway
