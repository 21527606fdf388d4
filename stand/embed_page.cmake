# cmake -D PAGE=page.html -D SOURCE=page_html.cpp -P embed_page.cmake
#
# Writes a source that defines the bytes of the page. An array of numbers: a string literal of this length is longer than
# compilers have to accept, and no byte of the page needs an escape this way.
file(READ "${PAGE}" bytes HEX)
string(REGEX REPLACE "(................................................)" "\\1\n" bytes "${bytes}")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
file(WRITE "${SOURCE}.new" "// Made from page.html by embed_page.cmake.
#include \"stand/page_html.h\"

namespace CryptStand {
const unsigned char kPageHtml[] = {
${bytes}};
const std::size_t kPageHtmlSize = sizeof kPageHtml;
}  // namespace CryptStand
")
file(RENAME "${SOURCE}.new" "${SOURCE}")
