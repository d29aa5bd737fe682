#pragma once
// What a test station gets for the virtual files.

#include <string>

#include "userapps/FTM/FTM_App.h"

/// What the station is answered for an error record; "ACK" for none.
inline std::string answerFor(const ST_TFTP_ERROR* error) {
  if (error == nullptr)
    return "ACK";
  return "ERROR " + std::to_string(error->usErrorCode) + " " + (error->psErrMsg == nullptr ? "" : error->psErrMsg);
}

/// The text of a file, or the answer.
inline std::string readFile(const char* name) {
  ST_TFTP_ERROR* error = nullptr;
  const char* text = getFtmXml(name, &error);
  return text == nullptr ? answerFor(error) : text;
}

/// The answer to a written file.
inline std::string writeFile(const char* name, std::string text) {
  return answerFor(putFtmXml(text.data(), name));
}

/// The message of the error record, "" when it has none; behind its code unless that is 0, the only one that the
/// service gives.
inline std::string recordedMessage() {
  const ST_TFTP_ERROR* error = FTM_HasErrorTFTP();
  if (error == nullptr)
    return "";
  return (error->usErrorCode == 0 ? "" : "code " + std::to_string(error->usErrorCode) + ": ") + error->psErrMsg;
}
