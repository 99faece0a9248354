# Writes the bytes of IN as a C++ array NAME (and NAME_size) in namespace pcfg::lsp, into OUT.
#   cmake -DIN=file -DOUT=file.cc -DNAME=kBytes -P embed_bytes.cmake
file(READ ${IN} hex HEX)
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
string(REGEX REPLACE "(0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,)" "\\1\n" bytes "${bytes}")
get_filename_component(source ${IN} NAME)
file(WRITE ${OUT} "// Generated from ${source} by embed_bytes.cmake: do not edit.\n#include <cstddef>\n\nnamespace pcfg::lsp {\n\nextern const unsigned char ${NAME}[] = {\n${bytes}};\nextern const size_t ${NAME}_size = sizeof(${NAME});\n\n}  // namespace pcfg::lsp\n")
