#ifndef VEXA_BENCH_BENCH_CASE_H
#define VEXA_BENCH_BENCH_CASE_H

#include <string>

// One expression of the shared sets as gen_cases writes it into
// bench_cases.inc: its text for vexa and for each peer parser, its parameters
// with their ranges, and the same formula as a native C++ function.
constexpr int kMaxParams = 16;

struct BenchCase {
    const char* file;
    const wchar_t* text;
    const char* peer;    // muParser
    const char* exprtk;
    int params;
    const char* names;
    double lo[kMaxParams];
    double hi[kMaxParams];
    double (*native)(const double*);
};

// An expression's text for printing (the sets are ASCII).
inline std::string Narrow(const wchar_t* w)
{
    std::string s;
    for (; *w; ++w)
        s.push_back(static_cast<char>(*w));
    return s;
}

#endif
