#include "gateway/web/page.h"

#include <array>

#include "icon.h"
#include "index.h"
#include "script.h"
#include "style.h"

namespace web {
namespace {

constexpr std::array<Part, 4> kParts = {{{"/", "text/html; charset=utf-8", embedded::index},
                                         {"/page.js", "text/javascript; charset=utf-8", embedded::script},
                                         {"/page.css", "text/css; charset=utf-8", embedded::style},
                                         {"/icon.svg", "image/svg+xml", embedded::icon}}};

}  // namespace

std::span<const Part> page() { return kParts; }

// Whatever asks for a page can take it compressed.
Response page_answer(const Part& part) {
  Response response = answer(http::status::ok, part.type, std::string(part.bytes));
  response.set(http::field::content_encoding, "gzip");
  return response;
}

}  // namespace web
