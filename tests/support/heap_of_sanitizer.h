/* SPDX-License-Identifier: MIT */
// Whether the heap is a sanitizer's, which has no limit that a test could set.
#pragma once

namespace kel::test {

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KEL_HEAP_OF_SANITIZER
#endif
#endif

#ifdef KEL_HEAP_OF_SANITIZER
inline constexpr bool kHeapOfSanitizer = true;
#else
inline constexpr bool kHeapOfSanitizer = false;
#endif

}  // namespace kel::test
