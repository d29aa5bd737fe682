// Parsing a document of the size of the statistics file, writing it back and freeing the tree: the XML module beside
// two libraries. Each starts from a text that it may not change and ends with the indented text.
#include <benchmark/benchmark.h>
#include <pugixml.hpp>
#include <tinyxml2.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "userapps/FTM/FTM_Tags.h"
#include "userapps/FTM/xml_parser.h"

namespace {

constexpr const auto& document = statisticsTemplate;

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
