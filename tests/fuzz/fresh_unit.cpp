#include "tests/fuzz/fresh_unit.h"

#include <cstdio>
#include <cstring>

#include "platform/board.h"
#include "simulator/board_calls.h"
#include "simulator/clock.h"
#include "simulator/database.h"
#include "simulator/store/tables.h"
#include "tests/fuzz/fuzz.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Tags.h"
#include "userapps/FTM/TFTPExterns.h"
#include "userapps/FTM/VoipTask.h"
#include "userapps/FTM/WrLsTask.h"

namespace {

gateway::Database::Version factoryVersion;
std::vector<std::string> commandsAskedFor;

std::FILE* silentStream() {
  std::FILE* const stream = std::fopen("/dev/null", "w");
  fuzz::require(stream != nullptr, "there is a place for what the service prints");
  std::setvbuf(stream, nullptr, _IOFBF, std::size_t{64} * 1024);
  return stream;
}

void prepareOnce() {
  static const bool prepared = [] {
    stdout = silentStream();
    stderr = silentStream(); // a sanitizer and libFuzzer have the descriptor
    gateway::useUnit(gateway::Unit::inMemory());
    gateway::theUnit().database().runScript("SAVEPOINT factory");
    factoryVersion = gateway::theUnit().database().version();
    return true;
  }();
  static_cast<void>(prepared);
}

void destroy(ST_XML_ELEMENT*& tree) {
  destroy_xml_object(tree);
  tree = nullptr;
}

/// The service as it starts.
void forgetService() {
  FTM_ExitCleanUp();
  for (ST_XML_ELEMENT** tree :
       {&pstTestModeCfgElmt, &pstTestModeOpElmt, &pstFTMStatElmt, &pstFTMStats4pElmt, &pstFTMProgElmt})
    destroy(*tree);
  FTM_ClrErrorTFTP();
  ClearFileFromFtmFlag();
  DoneDwloadINI();
  FtmClear4PortStat();
  std::memset(caE_164Strng, 0, sizeof caE_164Strng);
  bResetSwTest = 0;
  stVoipTstRslt = {};
  iVoipDecoder = eVOIP_IDLE;
  iFtmVoipCmd = eVOIP_IDLE;
  giReadClear = 0;
  iFtmWrLsCmd = eWRLS_IDLE;
  stWlFtm = {};
  stWlInfo = {};
  ServerBlockSeqError = 0;
}

/// The unit as it was made. Most inputs change nothing of it, and what was read of it then stays remembered.
void restoreUnit() {
  gateway::Database& database = gateway::theUnit().database();
  if (database.version() == factoryVersion)
    return;
  database.runScript("ROLLBACK TO factory");
  database.stateChanged();
  factoryVersion = database.version();
}

std::string refusalOf(const ST_TFTP_ERROR* error) {
  fuzz::require(error != nullptr, "a refusal has its record");
  return error->psErrMsg != nullptr ? error->psErrMsg : "refused without a message";
}

constexpr const char* readableFiles[] = {szFTM_ModemInfo,   szFTM_TestModeOp, szFTM_TestModeCfg, szFTM_Statistics,
                                         szFTM_Statistics2, szFTM_Progress,   szFTM_Stats4port};

} // namespace

fuzz::FreshUnit::FreshUnit() {
  prepareOnce();
  gateway::clock::useManual();
}

fuzz::FreshUnit::~FreshUnit() {
  require(gateway::openDescriptors() == 0, "every device is closed");
  forgetService();
  restoreUnit();
  commandsAskedFor.clear();
}

const std::vector<std::string>& fuzz::commands() {
  return commandsAskedFor;
}

fuzz::StoreCells fuzz::storeCells() {
  StoreCells cells;
  gateway::Tables& tables = FreshUnit::unit().tables();
  for (const gateway::StoreTable& table : gateway::storeTables()) {
    const int columns = static_cast<int>(tables.columns(table).size());
    for (int row = 0; row < tables.rows(table); ++row)
      for (int column = 0; column < columns; ++column)
        cells[{table.name, row, column}] = tables.cell(table, row, column).value_or("");
  }
  return cells;
}

std::string fuzz::readFile(const char* name) {
  ST_TFTP_ERROR* error = nullptr;
  const char* const text = getFtmXml(name, &error);
  if (text != nullptr)
    return text;
  refusalOf(error);
  return {};
}

std::string fuzz::writeFile(const char* name, std::string_view text) {
  WritableText copy(text);
  const ST_TFTP_ERROR* const error = putFtmXml(copy.get(), name);
  return error == nullptr ? std::string() : refusalOf(error);
}

void fuzz::readAll() {
  for (const char* const name : readableFiles)
    readFile(name);
}

// What an input must not do to this machine.

pid_t wrap_spawn(const char* path, char* const argv[], char* const envp[]) asm("__wrap_board_spawn");
pid_t wrap_waitpid(pid_t pid, int* status, int options) asm("__wrap_board_waitpid");
int wrap_system(const char* command) asm("__wrap_board_system");
int wrap_unlink(const char* path) asm("__wrap_board_unlink");
void wrap_record(gateway::Unit* unit, std::string_view kind, std::string_view text) asm(
    "__wrap__ZN7gateway4Unit6recordESt17basic_string_viewIcSt11char_traitsIcEES4_");

pid_t wrap_spawn(const char*, char* const argv[], char* const[]) {
  constexpr pid_t nobody = 1 << 30;
  std::string& command = commandsAskedFor.emplace_back();
  for (; *argv != nullptr; ++argv)
    command.append(command.empty() ? "" : " ").append(*argv);
  return nobody;
}

pid_t wrap_waitpid(pid_t pid, int* status, int) {
  *status = 0;
  return pid;
}

int wrap_system(const char* command) {
  commandsAskedFor.emplace_back(command);
  return 0;
}

int wrap_unlink(const char*) {
  return 0;
}

void wrap_record(gateway::Unit*, std::string_view, std::string_view) {}
