// Serving the embedded page.

#include <openssl/evp.h>

#include <array>
#include <cstddef>

#include "Monitor.h"
#include "Signature.h"

// Written at build time from the files of page/.
extern const char kPageHtml[];
extern const std::size_t kPageHtmlSize;

namespace {

// What lies between the first `tag` and its end, hashed as Content-Security-Policy asks for it.
std::string HashOf(const std::string& page, const std::string& tag) {
  const std::size_t start = page.find("<" + tag + ">") + tag.size() + 2;
  const std::size_t end = page.find("</" + tag + ">", start);
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest = {};
  unsigned size = 0;
  EVP_Digest(page.data() + start, end - start, digest.data(), &size, EVP_sha256(), nullptr);
  return "'sha256-" + ToBase64(digest.data(), size) + "'";
}

}  // namespace

Reply PageReply() {
  static const std::string kPage(kPageHtml, kPageHtmlSize);
  static const std::string kPolicy =
      "default-src 'none'; connect-src 'self'; img-src data:; style-src " + HashOf(kPage, "style") +
      "; script-src " + HashOf(kPage, "script") + "; base-uri 'none'; form-action 'none'";
  Reply reply;
  reply.contentType = "text/html; charset=utf-8";
  reply.body = kPage;
  reply.headers = {{"Content-Security-Policy", kPolicy},
                   {"X-Content-Type-Options", "nosniff"},
                   {"Cache-Control", "no-store"}};
  return reply;
}
