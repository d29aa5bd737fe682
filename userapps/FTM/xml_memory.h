#pragma once
// What the sources of the XML module share: its memory, which is there or ends the process, and its white space.

#include <cstddef>
#include <cstdlib>
#include <cstring>

constexpr bool isXmlSpace(char character) {
  return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

/// Logs at LOG_ERR and ends the process with status 255.
[[noreturn]] void xmlOutOfMemory();

/// What an allocation returned, unless that is null.
template <class Type>
Type* xmlAllocated(Type* memory) {
  if (memory == nullptr)
    xmlOutOfMemory();
  return memory;
}

/// A copy of `length` characters, ended by a NUL.
inline char* xmlCopy(const char* text, std::size_t length) {
  char* const copy = static_cast<char*>(xmlAllocated(std::malloc(length + 1)));
  std::memcpy(copy, text, length);
  copy[length] = '\0';
  return copy;
}

inline char* xmlCopy(const char* text) {
  return xmlCopy(text, std::strlen(text));
}

/// Appends to a null-terminated array (null: an empty one), which grows to exactly what it then holds.
template <class Type>
void xmlAppend(Type**& array, Type* entry) {
  std::size_t count = 0;
  while (array != nullptr && array[count] != nullptr)
    ++count;
  array = static_cast<Type**>(xmlAllocated(std::realloc(array, (count + 2) * sizeof(void*))));
  array[count] = entry;
  array[count + 1] = nullptr;
}
