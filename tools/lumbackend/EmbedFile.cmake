# cmake -DINPUT=file -DOUTPUT=file.cpp -DNAME=name -P EmbedFile.cmake
#
# Writes a C++ source that defines `extern const char NAME[]` and `extern const std::size_t NAMESize`
# with the bytes of INPUT.
file(READ ${INPUT} hex HEX)
string(LENGTH "${hex}" digits)
math(EXPR size "${digits} / 2")
string(REGEX REPLACE "(..)" "'\\\\x\\1'," bytes "${hex}")
string(REGEX REPLACE "(('[^']*',){12})" "\\1\n    " bytes "${bytes}")
file(WRITE ${OUTPUT} "// Made from a file by EmbedFile.cmake.
#include <cstddef>

extern const char ${NAME}[];
extern const std::size_t ${NAME}Size;

const char ${NAME}[] = {
    ${bytes}};
const std::size_t ${NAME}Size = ${size};
")
