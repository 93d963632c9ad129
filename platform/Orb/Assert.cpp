#include "Orb/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Orb {
namespace {

void printAndAbort(const char* expression, const char* function) {
  std::fprintf(stderr, "fatal: assertion \"%s\" failed in \"%s\"\n", expression, function);
  std::abort();
}

AssertHandler handler = printAndAbort;

}  // namespace

AssertHandler assertHandlerIs(AssertHandler next) {
  const AssertHandler previous = handler;
  handler = next;
  return previous;
}

void assertFailed(const char* expression, const char* function) {
  handler(expression, function);
  std::abort();
}

}  // namespace Orb
