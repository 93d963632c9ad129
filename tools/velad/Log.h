#pragma once

#include <string>

namespace Velad {

enum class Level { error, warning, info };
/// The one of the name; "info" if it has none.
Level levelOf(const std::string& name);
/// Lines of less than the level are left out.
void leastLevelIs(Level level);
Level leastLevel();  ///< As it is now.
/// Writes a line to standard error, with its level: as the journal reads it where that listens.
void log(Level level, const std::string& text);

}  // namespace Velad
