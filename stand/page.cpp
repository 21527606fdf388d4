// The page at the root of the crypt service: one embedded file, and the policy that it is sent with.
#include "stand/page.h"

#include <algorithm>
#include <openssl/evp.h>
#include <string>
#include <string_view>

#include "stand/key_pair.h"
#include "stand/page_html.h"

namespace CryptStand {
namespace {

std::string_view PageText() {
  return {reinterpret_cast<const char*>(kPageHtml), kPageHtmlSize};
}

// The content of the one element of this name; empty if there is none.
std::string_view ContentOf(std::string_view html, const std::string& element) {
  const std::size_t start = html.find("<" + element);
  const std::size_t open = html.find('>', start);
  const std::size_t end = html.find("</" + element + ">", open);
  if (end == std::string_view::npos) return {};
  return html.substr(open + 1, end - open - 1);
}

// What allows one inline element (CSP level 2, 4.2.5): nothing that gets into the page later has this digest.
std::string HashSource(std::string_view content) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  if (EVP_Digest(content.data(), content.size(), digest, &size, EVP_sha256(), nullptr) != 1) return "'none'";
  return "'sha256-" + ToBase64({reinterpret_cast<const char*>(digest), size}) + "'";
}

// The page inserts what servers say as text alone. The policy keeps that harmless should the page get it
// wrong: "require-trusted-types-for" makes the browser refuse any string that becomes markup.
std::string MakePolicy() {
  return "default-src 'none'; script-src " + HashSource(ContentOf(PageText(), "script")) + "; style-src " +
         HashSource(ContentOf(PageText(), "style")) +
         "; connect-src 'self'; img-src data:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
         "require-trusted-types-for 'script'; trusted-types 'none'";
}

}  // namespace

bool IsPageRequest(const HttpRequest& request) {
  const bool isRoot = request.target == "/" || request.target.starts_with("/?");
  const auto accepted = request.HeaderValues("Accept");
  return isRoot && (request.method == "GET" || request.method == "HEAD") &&
         std::any_of(accepted.begin(), accepted.end(),
                     [](const std::string& types) { return types.find("text/html") != std::string::npos; });
}

HttpReply ServePage() {
  static const std::string policy = MakePolicy();
  HttpReply reply;
  reply.contentType = "text/html; charset=utf-8";
  reply.body = PageText();
  reply.headers = {{"Content-Security-Policy", policy},
                   {"X-Content-Type-Options", "nosniff"},
                   {"Referrer-Policy", "no-referrer"},
                   {"Cross-Origin-Opener-Policy", "same-origin"},
                   {"Cross-Origin-Resource-Policy", "same-origin"},
                   {"Cache-Control", "no-store"},
                   {"Vary", "Accept"}};
  return reply;
}

}  // namespace CryptStand
