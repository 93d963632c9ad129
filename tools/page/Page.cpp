#include "tools/page/Page.h"

#include <nlohmann/json.hpp>

#include "tools/page/Sources.h"

namespace VelaPage {

namespace {

void replace(std::string& text, std::string_view mark, std::string_view by) {
  text.replace(text.find(mark), mark.size(), by);
}

}  // namespace

std::string pageOf(const VelaAgent::Json& picture) {
  std::string data = picture.dump();
  // No text of the data may end the element that it stands in.
  for (std::size_t at = 0; (at = data.find('<', at)) != std::string::npos;) {
    data.replace(at, 1, "\\u003c");
  }
  std::string page(pageSource);
  replace(page, "{{style}}", styleSource);
  replace(page, "{{script}}", scriptSource);
  replace(page, "{{data}}", data);
  return page;
}

}  // namespace VelaPage
