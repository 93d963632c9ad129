#pragma once

namespace Orb {

/// Whether the address sanitizer watches this build, and looks for leaks at its end.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool addressSanitizer = true;
#elif defined(__has_feature)
inline constexpr bool addressSanitizer = __has_feature(address_sanitizer);
#else
inline constexpr bool addressSanitizer = false;
#endif

}  // namespace Orb
