#ifndef VEXA_CORE_EXPORT_H
#define VEXA_CORE_EXPORT_H

// The library is compiled with hidden visibility; only what carries this
// macro is part of the binary interface a host links against. On Windows the
// same marks export from the DLL while it is built (VEXA_BUILDING_LIBRARY)
// and import into its hosts.
#if defined(_WIN32)
#  if defined(VEXA_BUILDING_LIBRARY)
#    define VEXA_API __declspec(dllexport)
#  else
#    define VEXA_API __declspec(dllimport)
#  endif
#else
#  define VEXA_API __attribute__((visibility("default")))
#endif

#endif
