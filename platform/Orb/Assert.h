#pragma once

#include <stdexcept>

#include "Orb/Types.h"

/// Fatal assertions: broken invariants of the program, never bad input. All of them go through one
/// handler, which gets the text of the failed expression and the function it stands in.
namespace Orb {

/// What a handler throws that does not end the process. Whoever reads rows of hardware, which may
/// hold anything, catches it and goes on with the next row.
class VELA_EXPORT AssertionFailed : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

/// Called when an assertion fails. Must not return: it ends the process or throws an
/// AssertionFailed.
using AssertHandler = void (*)(const char* expression, const char* function);

/// Installs a handler and returns the one it replaces. The default handler prints both texts to
/// standard error and aborts.
VELA_EXPORT AssertHandler assertHandlerIs(AssertHandler handler);

/// Hands both texts to the handler; aborts if that returns.
[[noreturn]] VELA_EXPORT void assertFailed(const char* expression, const char* function);

}  // namespace Orb

/// Fails with the expression itself as the text.
#define ORB_ASSERT(expression) ORB_ASSERT_TEXT(expression, #expression)

/// Fails with a text of its own, where that says more than the expression.
#define ORB_ASSERT_TEXT(expression, text) \
  (static_cast<bool>(expression) ? void(0) : ::Orb::assertFailed(text, __PRETTY_FUNCTION__))
