#include "vexa/compiled/run/lanes.h"

#include <cstring>

#include "vexa/core/float_ops.h"

namespace vexa_compiled {

namespace {

typedef void (*LaneOp)(double*, const double*, const double*, int);

struct LaneOps {
    LaneOp sum;
    LaneOp difference;
    LaneOp product;
    LaneOp quotient;
};

#if defined(__GNUC__) && defined(__x86_64__)

// Written in assembly because a compiler may swap the operands of + and *,
// and with two NaN operands the first one's NaN comes out. Unaligned loads:
// the lanes may lie in the caller's arrays.
typedef double Pair __attribute__((vector_size(16)));

#define VEXA_SSE_LANES(name, insn)                                             \
    void name(double* d, const double* first, const double* second, int n)    \
    {                                                                          \
        for (int i = 0; i < n; i += 2) {                                       \
            Pair a;                                                            \
            Pair b;                                                            \
            std::memcpy(&a, first + i, sizeof a);                              \
            std::memcpy(&b, second + i, sizeof b);                             \
            __asm__(insn " %1, %0" : "+x"(a) : "x"(b));                        \
            std::memcpy(d + i, &a, sizeof a);                                  \
        }                                                                      \
    }

VEXA_SSE_LANES(SumSse, "addpd")
VEXA_SSE_LANES(DifferenceSse, "subpd")
VEXA_SSE_LANES(ProductSse, "mulpd")
VEXA_SSE_LANES(QuotientSse, "divpd")

typedef double Quad __attribute__((vector_size(32)));

// The first source of the three-operand form is the first operand, whose NaN
// wins, as with the two-operand form.
#define VEXA_AVX_LANES(name, insn)                                             \
    __attribute__((target("avx"))) void name(double* d, const double* first, \
                                             const double* second, int n)     \
    {                                                                          \
        for (int i = 0; i < n; i += 4) {                                       \
            Quad a;                                                            \
            Quad b;                                                            \
            Quad r;                                                            \
            std::memcpy(&a, first + i, sizeof a);                              \
            std::memcpy(&b, second + i, sizeof b);                             \
            __asm__(insn " %2, %1, %0" : "=x"(r) : "x"(a), "x"(b));            \
            std::memcpy(d + i, &r, sizeof r);                                  \
        }                                                                      \
    }

VEXA_AVX_LANES(SumAvx, "vaddpd")
VEXA_AVX_LANES(DifferenceAvx, "vsubpd")
VEXA_AVX_LANES(ProductAvx, "vmulpd")
VEXA_AVX_LANES(QuotientAvx, "vdivpd")

const LaneOps& Chosen()
{
    static const LaneOps ops = [] {
        __builtin_cpu_init();
        if (__builtin_cpu_supports("avx"))
            return LaneOps{SumAvx, DifferenceAvx, ProductAvx, QuotientAvx};
        return LaneOps{SumSse, DifferenceSse, ProductSse, QuotientSse};
    }();
    return ops;
}

#else

template <double (*F)(double, double)>
void Plain(double* d, const double* first, const double* second, int n)
{
    for (int i = 0; i < n; ++i)
        d[i] = F(first[i], second[i]);
}

const LaneOps& Chosen()
{
    static const LaneOps ops{Plain<vexa_core::Sum>, Plain<vexa_core::Difference>, Plain<vexa_core::Product>,
                             Plain<vexa_core::Quotient>};
    return ops;
}

#endif

}  // namespace

void SumLanes(double* d, const double* first, const double* second, int n)
{
    Chosen().sum(d, first, second, n);
}

void DifferenceLanes(double* d, const double* first, const double* second, int n)
{
    Chosen().difference(d, first, second, n);
}

void ProductLanes(double* d, const double* first, const double* second, int n)
{
    Chosen().product(d, first, second, n);
}

void QuotientLanes(double* d, const double* first, const double* second, int n)
{
    Chosen().quotient(d, first, second, n);
}

}  // namespace vexa_compiled
