// The page, as a part of the program.
#pragma once

#include <span>
#include <string_view>

#include "gateway/web/http.h"

namespace web {

// A file of it, compressed.
struct Part {
  std::string_view path;
  std::string_view type;
  std::string_view bytes;
};

std::span<const Part> page();

Response page_answer(const Part& part);

}  // namespace web
