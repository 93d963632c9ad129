#pragma once

#include <string>

namespace Velad {

enum class Level { error, warning, info };
/// Writes a line to standard error, with its level: as the journal reads it where that listens.
void log(Level level, const std::string& text);

}  // namespace Velad
