// Seeds of the targets whose input is plain text: JSON, dates, URLs, encodings. Each has one property at
// which a parser decides, which its name says.
#include <initializer_list>
#include <utility>

#include "fuzz/make_seeds.h"
#include "fuzz/support/responses.h"

namespace Fuzz {
namespace {

using Named = std::initializer_list<std::pair<const char*, std::string_view>>;

void Add(const std::filesystem::path& root, std::string_view target, Named seeds) {
  const SeedFolder folder(root, target);
  for (const auto& [name, bytes] : seeds) folder.Add(name, bytes);
}

void MakeJsonSeeds(const std::filesystem::path& root) {
  Add(root, "json",
      {{"numbers",
        "[0,-0,1,-1,9223372036854775807,-9223372036854775808,9223372036854775808,0.1,1e300,-2.5E-7,5e-324]"},
       {"words", "[true,false,null]"},
       {"strings", R"(["","a\"\\\/\b\f\n\r\t","\u0000\u001f\u00e4\ud83d\ude00","ä€😀"])"},
       {"maps", R"({"":1,"a":{"b":{"c":[]}},"a":{},"b":[[[]]]})"},
       {"white", " \t\r\n{ \"a\" : [ 1 , 2 ] }\n"},
       {"lone-surrogate", R"("\ud800")"},
       {"not-utf8", "\"\xFF\""},
       {"trailing", "{}x"},
       {"deep", "[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[1]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]"},
       {"infinite", "1e999"}});
  const SeedFolder folder(root, "json");
  for (const char* step : {"key", "certlist", "integrity", "getKeyRequest", "generateWrappedKeyRequest"})
    folder.Add(std::string("answer-") + step, UsualResponse(step, {}).body);
}

}  // namespace

void MakeTextSeeds(const std::filesystem::path& root) {
  MakeJsonSeeds(root);
  Add(root, "http_date",
      {{"usual", "Sun, 06 Nov 1994 08:49:37 GMT"},
       {"no-weekday", "06 Nov 1994 08:49:37 GMT"},
       {"no-seconds", "Sun, 06 Nov 1994 08:49 GMT"},
       {"offset", "Sun, 06 Nov 1994 08:49:37 +0130"},
       {"negative-offset", "1 Jan 2000 00:00:00 -1200"},
       {"leap-second", "Thu, 31 Dec 1998 23:59:60 UTC"},
       {"leap-day", "Thu, 29 Feb 2024 23:59:59 Z"},
       {"no-leap-day", "Wed, 29 Feb 2023 23:59:59 UT"},
       {"last", "Fri, 31 Dec 9999 23:59:59 GMT"},
       {"first", "Mon, 01 Jan 0001 00:00:00 GMT"}});
  Add(root, "url",
      {{"unreserved", "AZaz09-._~"},
       {"reserved", "a b/c?d#e%20[f]@:&=+$,;"},
       {"utf8", "Zürich €"},
       {"blank-ends", " \t text \r\n\x7F"},
       {"bytes", std::string_view("\x00\x01\x80\xFF", 4)}});
  Add(root, "encoding",
      {{"base64", "AAECAwQFBgcICQoLDA0ODw=="},
       {"base64-lines", "QUJD\r\nREVG\r\n"},
       {"base64-one-pad", "QUI="},
       {"base64-bad-bits", "QUJ="},
       {"hex", "00ff10AaBb"},
       {"hex-lines", "00ff\r\n10"},
       {"odd", "0ff"},
       {"bytes", std::string_view("\x00\xFF\xFE\x01 text", 9)}});
}

}  // namespace Fuzz
