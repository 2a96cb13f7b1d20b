#pragma once
// Whether this test program runs under AddressSanitizer (g++ or clang): some measures (resident
// memory, running out of descriptors) mean something else there.

namespace vmio::test {

#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif
#else
inline constexpr bool kSanitized = false;
#endif

// The sanitizers check a pointer by writing through a pipe of their own: with no descriptor
// left, that check fails and reports a fault that is not there.
inline constexpr char kNeedsDescriptorsOfItsOwn[] = "the sanitizers need descriptors of their own to check memory";

}  // namespace vmio::test
