# Says how large PROGRAM is and fails when that is more than LIMIT bytes.
file(SIZE "${PROGRAM}" size)
math(EXPR tenths "${size} * 10 / 1024")
string(REGEX REPLACE "(.)$" ".\\1" kibibytes ${tenths})
message("${PROGRAM}: ${size} bytes (${kibibytes} KiB)")
if(size GREATER LIMIT)
  message(FATAL_ERROR "That is more than ${LIMIT} bytes")
endif()
