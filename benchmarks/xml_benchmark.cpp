// Parsing a document of the size of the statistics file, writing it back and freeing the tree: the XML module beside
// two libraries. Each starts from a text that it may not change and ends with the indented text.
#include <benchmark/benchmark.h>
#include <pugixml.hpp>
#include <tinyxml2.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "userapps/FTM/xml_parser.h"

namespace {

// clang-format off
constexpr char document[] =
    "<?xml version=1.0 encoding=UTF-8?>"
    "<FTM_STATS>"
    "  <ETHERNET>"
    "     <ETH_DISCARD_IN> 0 </ETH_DISCARD_IN>"
    "     <ETH_DISCARD_OUT> 0 </ETH_DISCARD_OUT>"
    "     <ETH_IN> 0 </ETH_IN>"
    "     <ETH_OUT> 0  </ETH_OUT>"
    "  </ETHERNET>"
    "  <ATM>"
    "     <ATM_DISCARD_IN> 0 </ATM_DISCARD_IN>"
    "     <ATM_DISCARD_OUT> 0 </ATM_DISCARD_OUT>"
    "     <ATM_IN> 0 </ATM_IN>"
    "     <ATM_OUT> 0 </ATM_OUT>"
    "     <VC_CHAN_NUM> 1"
    "        <VC_VPI> 1 </VC_VPI>"
    "       <VC_VCI> 1 </VC_VCI>"
    "     </VC_CHAN_NUM>"
    "  </ATM>"
    "  <DSL>"
    "     <DSL_ACTIVITY_DOWNSTREAM> 1 </DSL_ACTIVITY_DOWNSTREAM>"
    "     <DSL_ACTIVITY_UPTREAM> 1 </DSL_ACTIVITY_UPTREAM>"
    "     <DSL_FEC_DOWNSTREAM> 1 </DSL_FEC_DOWNSTREAM>"
    "     <DSL_FEC_UPSTREAM> 1 </DSL_FEC_UPSTREAM>"
    "     <DSL_CRC_DOWNSTREAM> 1 </DSL_CRC_DOWNSTREAM>"
    "     <DSL_CRC_UPSTREAM> 1 </DSL_CRC_UPSTREAM>"
    "     <DSL_HEC_DOWNSTREAM> 1 </DSL_HEC_DOWNSTREAM>"
    "     <DSL_HEC_UPSTREAM> 1 </DSL_HEC_UPSTREAM>"
    "     <DSL_ATTEN_DOWNSTREAM> 1 </DSL_ATTEN_DOWNSTREAM>"
    "     <DSL_ATTEN_UPSTREAM> 1 </DSL_ATTEN_UPSTREAM>"
    "     <DSL_MARGIN_DOWNSTREAM> 1 </DSL_MARGIN_DOWNSTREAM>"
    "     <DSL_MARGIN_UPSTREAM> 1 </DSL_MARGIN_UPSTREAM>"
    "     <DSL_SPEED_DOWNSTREAM> 1 </DSL_SPEED_DOWNSTREAM>"
    "     <DSL_SPEED_UPSTREAM> 1 </DSL_SPEED_UPSTREAM>"
    "     <DSL_POWER_DOWNSTREAM> 1 </DSL_POWER_DOWNSTREAM>"
    "     <SIGNAL_LOSS> 1 </SIGNAL_LOSS>"
    "     <READY_STATUS> READY </READY_STATUS>"
    "     <DSL_STATE> DOWN </DSL_STATE>"
    "  </DSL>"
    "  <BCOM_WIRELESS>"
    "     <WIRE_TXBYTES> NA </WIRE_TXBYTES>"
    "     <WIRE_TXPACKETS> NA </WIRE_TXPACKETS>"
    "     <WIRE_TXERRORS> NA </WIRE_TXERRORS>"
    "     <WIRE_TXDROPS> NA </WIRE_TXDROPS>"
    "     <WIRE_RXBYTES> NA </WIRE_RXBYTES>"
    "     <WIRE_RXPACKETS> NA </WIRE_RXPACKETS>"
    "     <WIRE_RXERRORS> NA </WIRE_RXERRORS>"
    "     <WIRE_RXDROPS> NA </WIRE_RXDROPS>"
    "     <WIRE_STATIONS> NA </WIRE_STATIONS>"
    "  </BCOM_WIRELESS>"
    "  <FLASH>"
    "     <DEV_TYPE> OK </DEV_TYPE>"
    "     <WRITE> OK </WRITE>"
    "     <ERASE> OK </ERASE>"
    "     <CORRUPT_FILE> NO </CORRUPT_FILE>"
    "     <FILE_CRC_ERROR> NO </FILE_CRC_ERROR>"
    "  </FLASH>"
    "</FTM_STATS>";
// clang-format on

bool isComplete(std::string_view result) {
  return result.rfind("</FTM_STATS>") != std::string_view::npos;
}

void ftm(benchmark::State& state) {
  while (state.KeepRunning()) {
    auto* const text = static_cast<char*>(std::malloc(sizeof document));
    std::memcpy(text, document, sizeof document);
    const XmlTree tree(create_xml_object(text));
    std::free(text);
    unsigned long length = 0;
    XML_fileLength(tree.get(), &length, 1, 0);
    auto* const result = static_cast<char*>(std::malloc(length + 1));
    result[0] = '\0';
    unsigned long written = 0;
    DumpToXML(tree.get(), result, length + 1, &written, 1, 0, 0);
    if (!isComplete({result, written}))
      state.SkipWithError("incomplete text");
    std::free(result);
  }
}
BENCHMARK(ftm);

void tinyxml2(benchmark::State& state) {
  while (state.KeepRunning()) {
    tinyxml2::XMLDocument tree;
    tree.Parse(document, sizeof document - 1);
    tinyxml2::XMLPrinter result;
    tree.Print(&result);
    if (!isComplete(result.CStr()))
      state.SkipWithError("incomplete text");
  }
}
BENCHMARK(tinyxml2);

/// Collects the text; the stream that the library also offers is slower.
struct TextWriter : pugi::xml_writer {
  std::string text;
  void write(const void* data, std::size_t size) override { text.append(static_cast<const char*>(data), size); }
};

void pugixml(benchmark::State& state) {
  while (state.KeepRunning()) {
    pugi::xml_document tree;
    tree.load_buffer(document, sizeof document - 1);
    TextWriter result;
    tree.save(result, "  ");
    if (!isComplete(result.text))
      state.SkipWithError("incomplete text");
  }
}
BENCHMARK(pugixml);

} // namespace
