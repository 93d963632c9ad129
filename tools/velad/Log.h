#pragma once

#include <string>

namespace Velad {

enum class Level { error, warning, info };
/// Lines of less than the level of the name are left out.
void leastLevelIs(const std::string& name);
/// Writes a line to standard error, with its level: as the journal reads it where that listens.
void log(Level level, const std::string& text);

}  // namespace Velad
