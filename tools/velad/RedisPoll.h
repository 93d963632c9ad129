#pragma once

#include <hiredis/async.h>

#include <functional>

#include "Loop.h"

namespace Velad {

/// Lets a loop drive a connection of the Redis library. The adapter that comes with the library
/// does not hear of connections that were reset. `heard` is called when bytes come.
void drive(Loop& loop, redisAsyncContext* context, std::function<void()> heard);

}  // namespace Velad
