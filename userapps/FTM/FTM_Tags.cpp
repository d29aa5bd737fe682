// What the handlers of all virtual files share.
#include "userapps/FTM/FTM_Tags.h"

#include <cstdlib>
#include <memory>

#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Handles.h"

namespace {

using HeapText = std::unique_ptr<char, HeapFree>;

constexpr int readable = 1;
constexpr int notPrinted = 0;
constexpr int topLevel = 0;

// Text of a tree that takes `length` characters; null when it can't be made, or came out otherwise.
HeapText serialise(const ST_XML_ELEMENT* tree, unsigned long length) {
  const unsigned long size = length + 1;
  HeapText text(static_cast<char*>(std::malloc(size)));
  if (text == nullptr)
    return nullptr;
  *text = '\0';
  unsigned long written = 0;
  const int result = DumpToXML(tree, text.get(), size, &written, readable, notPrinted, topLevel);
  return result == 0 && written == length ? std::move(text) : nullptr;
}

} // namespace

int TFTP_createXmlFile(char** ppOutFile, unsigned long* pOutSize, const ST_XML_ELEMENT* pXmlResp) {
  unsigned long length = 0;
  XML_fileLength(pXmlResp, &length, readable, topLevel);
  HeapText text;
  if (length != 0 && *ppOutFile == nullptr)
    text = serialise(pXmlResp, length);
  if (text == nullptr) {
    FTM_FlgErrorTFTP(0, szCrtXmlFail, 0);
    return -1;
  }
  *pOutSize = length + 1; // the NUL included
  *ppOutFile = text.release();
  return 0;
}
