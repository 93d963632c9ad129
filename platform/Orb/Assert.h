#pragma once

#include "Orb/Types.h"

/// Fatal assertions: broken invariants of the program, never bad input. All of them go through one
/// handler, which gets the text of the failed expression and the function it stands in.
namespace Orb {

/// Called when an assertion fails. Must not return: it ends the process or throws.
using AssertHandler = void (*)(const char* expression, const char* function);

/// Installs a handler and returns the one it replaces. The default handler prints both texts to
/// standard error and aborts.
VELA_EXPORT AssertHandler assertHandlerIs(AssertHandler handler);

[[noreturn]] VELA_EXPORT void assertFailed(const char* expression, const char* function);

}  // namespace Orb

/// Fails with the expression itself as the text.
#define ORB_ASSERT(expression) ORB_ASSERT_TEXT(expression, #expression)

/// Fails with a text of its own, where that says more than the expression.
#define ORB_ASSERT_TEXT(expression, text) \
  (static_cast<bool>(expression) ? void(0) : ::Orb::assertFailed(text, __PRETTY_FUNCTION__))
