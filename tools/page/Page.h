#pragma once

#include <string>

#include "agent/JsonForward.h"

/// The page that shows a picture of a switch: one file, with nothing that is fetched.
namespace VelaPage {

/// The page with the data of a VelaAgent::Picture in it.
std::string pageOf(const VelaAgent::Json& picture);

}  // namespace VelaPage
