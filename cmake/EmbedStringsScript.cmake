# Writes INPUT's bytes as a byte array that platform/string_table.cpp parses.
file(READ ${INPUT} content HEX)
string(LENGTH "${content}" hex_length)
math(EXPR byte_count "${hex_length} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${content}")
file(WRITE ${OUTPUT}
  "// Generated from resources/strings.txt; do not edit.\n"
  "#include <cstddef>\n"
  "namespace platform {\n"
  "extern const unsigned char kStringTableData[] = {${bytes} 0x00};\n"
  "extern const std::size_t kStringTableSize = ${byte_count};\n"
  "}\n")
