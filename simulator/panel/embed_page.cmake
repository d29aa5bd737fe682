# Writes the files FILES, whatever their bytes are, as the C++ source OUTPUT that defines what page.h declares.
# Called by the build: cmake -D OUTPUT=... -D FILES="one;other" -P embed_page.cmake

set(text "#include \"simulator/panel/page.h\"\n\nnamespace gateway {\n\nnamespace {\n\nconstexpr PageFile files[] = {\n")
foreach(file IN LISTS FILES)
  get_filename_component(name ${file} NAME)
  file(SIZE ${file} size)
  file(READ ${file} bytes HEX)
  string(REGEX REPLACE "(................................................................)" "\\1\"\n     \"" bytes "${bytes}")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "\\\\x\\1" bytes "${bytes}")
  string(APPEND text "    {\"${name}\",\n     {\"${bytes}\",\n      ${size}}},\n")
endforeach()
string(APPEND text "};\n\n} // namespace\n\nstd::span<const PageFile> pageFiles() {\n  return files;\n}\n\n} // namespace gateway\n")
file(WRITE ${OUTPUT} "${text}")
