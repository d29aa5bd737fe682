#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <span>
#include <string>
#include <string_view>

#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_Handles.h"
#include "userapps/FTM/FTM_Tags.h"

namespace {

constexpr const char* scsiListing = "/proc/scsi/scsi";
constexpr int lineSize = 128;

// An element of the "USB" section and the label behind which its value stands in the listing.
struct Field {
  const char* tag;
  std::string_view label;
  std::size_t gap; ///< characters between label and value
};
constexpr Field addressFields[] = {
    {"HOST", "Host: ", 0}, {"CHANNEL", "Channel: ", 0}, {"ID", "Id: ", 0}, {"LUN", "Lun: ", 0}};
constexpr Field productFields[] = {{"VENDOR", "Vendor:", 1}, {"MODEL", "Model:", 1}, {"REV", "Rev:", 1}};
constexpr Field typeFields[] = {{"TYPE", "Type:", 1}, {"ANSI_SCSI_REV", "ANSI SCSI revision:", 1}};

// The fields of one device, line by line.
constexpr std::span<const Field> deviceLines[] = {addressFields, productFields, typeFields};
constexpr std::size_t mostFields = std::size(addressFields);
static_assert(mostFields >= std::size(productFields) && mostFields >= std::size(typeFields));

// A line of at most `lineSize` - 1 characters, without its line feed; what is longer is the next line's.
struct Line {
  char text[lineSize] = "";

  bool read(std::FILE* listing) {
    if (std::fgets(text, sizeof text, listing) == nullptr)
      return false;
    text[std::strcspn(text, "\n")] = '\0';
    return true;
  }
};

using Values = std::array<std::string, mostFields>;

constexpr std::size_t deviceLineCount = std::size(deviceLines);

// Reads the lines of the first device. Returns false when there is none; lines that the listing lacks stay empty.
bool readDevice(std::FILE* listing, Line (&lines)[deviceLineCount]) {
  Line header;
  header.read(listing);
  if (!lines[0].read(listing))
    return false;
  for (std::size_t i = 1; i < deviceLineCount; ++i)
    lines[i].read(listing);
  return true;
}

// Cuts a line at its labels. A label that is missing gives its own element no text and leaves those after it alone.
// Blanks stay as they stand.
void sliceLine(std::string_view line, std::span<const Field> fields, Values& values) {
  std::size_t start = 0;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const std::size_t label = line.find(fields[i].label, start);
    if (label == std::string_view::npos) {
      values[i].clear();
      return;
    }
    if (i > 0)
      values[i - 1] = line.substr(start, label - start);
    start = std::min(label + fields[i].label.size() + fields[i].gap, line.size());
    values[i] = line.substr(start);
  }
}

void showValues(std::span<const Field> fields, const Values& values) {
  for (std::size_t i = 0; i < fields.size(); ++i)
    if (ST_XML_ELEMENT* element = GetElmtPtr(TestModeCfgTree(), "TEST_CONFIG", "USB", fields[i].tag))
      SetTextBody(element, values[i].c_str());
}

} // namespace

int FtmUpdateUSB() {
  TextStream listing(board_fopen(scsiListing, "r"));
  if (listing == nullptr) {
    std::printf("failed to open %s\n", scsiListing);
    return -1;
  }
  Line lines[deviceLineCount];
  const bool hasDevice = readDevice(listing.get(), lines);
  listing.reset();
  for (std::size_t i = 0; i < deviceLineCount; ++i) {
    Values values;
    values.fill("NA");
    if (hasDevice)
      sliceLine(lines[i].text, deviceLines[i], values);
    showValues(deviceLines[i], values);
  }
  return 0;
}
