#include "gateway/web/page.h"

#include <array>

namespace web {

std::span<const Part> page() { return {}; }

Response page_answer(const Part& part) {
  Response response = answer(http::status::ok, part.type, std::string(part.bytes));
  response.set(http::field::content_encoding, "gzip");
  return response;
}

}  // namespace web
