#pragma once
// Fixture of the tests of the test configuration file: nothing is left of an earlier test.

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "tests/unit/bench_unit.h"
#include "tests/unit/virtual_files.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Tags.h"
#include "userapps/FTM/VoipTask.h"
#include "userapps/FTM/WrLsTask.h"

class ConfigFile : public BenchUnit {
protected:
  ConfigFile() {
    unFtmState.usWd = 0;
    FTM_ClrErrorTFTP();
    stVoipTstRslt = {};
    iVoipDecoder = eVOIP_IDLE;
    iFtmVoipCmd = eVOIP_IDLE;
    giReadClear = 0;
    iFtmWrLsCmd = 0;
  }
  ~ConfigFile() override {
    FTM_ExitCleanUp();
    destroy_xml_object(pstTestModeCfgElmt);
    pstTestModeCfgElmt = nullptr;
  }

  /// What an operation did.
  struct Outcome {
    int result;
    std::string message; ///< of the error record
    std::vector<std::string> lines;
    bool operator==(const Outcome&) const = default;
    friend void PrintTo(const Outcome& outcome, std::ostream* out) {
      *out << outcome.result << " \"" << outcome.message << "\" " << testing::PrintToString(outcome.lines);
    }
  };

  static Outcome run(const std::function<int()>& operation) {
    FTM_ClrErrorTFTP();
    const std::size_t before = journal().size();
    const int result = operation();
    return {result, recordedMessage(), journalFrom(before)};
  }

  /// Parses `text` and runs `parser` on its first element.
  template <typename Parser>
  static Outcome parse(std::string text, Parser parser) {
    const XmlTree document(create_xml_object(text.data()));
    return run([&] { return parser(GetElements(document.get())[0]); });
  }

  static std::vector<std::string> journalFrom(std::size_t position) {
    std::vector<std::string> lines = journal();
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(position));
    return lines;
  }

  /// Text of an element of the file's tree, or its attribute: "LED/SINGLE_LED@NUM".
  static std::string inTree(const std::string& path) { return at(TestModeCfgTree(), path); }

  /// The same in the text of a read; the whole text for an empty path.
  static std::string readBack(const std::string& path = {}) {
    ST_TFTP_ERROR* error = nullptr;
    const char* text = getFtmXml(szFTM_TestModeCfg, &error);
    if (text == nullptr)
      return "no file";
    std::string copy = text;
    if (path.empty())
      return copy;
    const XmlTree document(create_xml_object(copy.data()));
    return at(document.get(), path);
  }

  /// What the station is answered to a written document of these sections.
  static std::string answerTo(const std::string& sections) {
    std::string text = "<?xml version=1.0 encoding=UTF-8?><TEST_CONFIG>" + sections + "</TEST_CONFIG>";
    return answerFor(putFtmXml(text.data(), szFTM_TestModeCfg));
  }

private:
  static std::string at(const ST_XML_ELEMENT* root, const std::string& path) {
    const std::size_t mark = path.find('@');
    const ST_XML_ELEMENT* element = GetElement(root, "TEST_CONFIG");
    for (std::size_t start = 0; element != nullptr && start < std::min(mark, path.size());) {
      const std::size_t end = std::min({path.find('/', start), mark, path.size()});
      element = GetElement(element, path.substr(start, end - start).c_str());
      start = end + 1;
    }
    if (element == nullptr)
      return "no element";
    if (mark == std::string::npos)
      return GetTextBody(element);
    const char* value = GetAttrValue(element, path.substr(mark + 1).c_str());
    return value == nullptr ? "no attribute" : value;
  }
};
