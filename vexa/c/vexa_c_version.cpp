// The C interface's questions about the library itself.
#include "vexa/vexa_c.h"

#ifndef VEXA_VERSION_TEXT
#error "the build gives the library's version (CMake's project version) as VEXA_VERSION_TEXT"
#endif

extern "C" {

const char* vexa_version(void)
{
    return VEXA_VERSION_TEXT;
}

const char* vexa_machine_code(void)
{
    // The same condition under which the compiled form emits code at all.
#if defined(__x86_64__) && (defined(__unix__) || defined(__APPLE__))
    return "x86-64 (System V)";
#elif defined(__aarch64__) && defined(__linux__)
    return "AArch64";
#elif defined(__x86_64__) && defined(_WIN32)
    return "x86-64 (Windows)";
#else
    return "none";
#endif
}

}  // extern "C"
