#ifndef VEXA_CORE_INLINE_HINTS_H
#define VEXA_CORE_INLINE_HINTS_H

// Inlining decisions the evaluation path depends on, in each compiler's own
// words (part of the portability layer; internal to the library).
//   VEXA_NOINLINE: kept out of line, so a rare path does not swell its caller.
//   VEXA_FORCE_INLINE: always inlined, so a switch on a constant folds away.
#if defined(_MSC_VER) && !defined(__clang__)
#  define VEXA_NOINLINE __declspec(noinline)
#  define VEXA_FORCE_INLINE __forceinline
#elif defined(__GNUC__) || defined(__clang__)
#  define VEXA_NOINLINE __attribute__((noinline))
#  define VEXA_FORCE_INLINE inline __attribute__((always_inline))
#else
#  define VEXA_NOINLINE
#  define VEXA_FORCE_INLINE inline
#endif

#endif
