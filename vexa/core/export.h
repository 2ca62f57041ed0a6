#ifndef VEXA_CORE_EXPORT_H
#define VEXA_CORE_EXPORT_H

// The library is compiled with hidden visibility; only what carries this
// macro is part of the binary interface a host links against.
#if defined(_WIN32)
#  define VEXA_API
#else
#  define VEXA_API __attribute__((visibility("default")))
#endif

#endif
