#pragma once

#include <string_view>

/// What page.html, style.css and page.js say.
namespace VelaPage {

extern const std::string_view pageSource;
extern const std::string_view styleSource;
extern const std::string_view scriptSource;

}  // namespace VelaPage
