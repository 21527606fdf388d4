#pragma once

#include <cstddef>

namespace CryptStand {

/// The bytes of page.html, which the build embeds (embed_page.cmake).
extern const unsigned char kPageHtml[];
extern const std::size_t kPageHtmlSize;

}  // namespace CryptStand
