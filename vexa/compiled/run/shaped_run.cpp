#include "vexa/calc/operation_math.h"
#include "vexa/compiled/program/shaped_program.h"
#include "vexa/compiled/run/scalar_step.h"
#include "vexa/core/float_ops.h"
#include "vexa/core/inline_hints.h"

namespace vexa_compiled {

namespace {

using vexa_core::Difference;
using vexa_core::Product;
using vexa_core::Quotient;
using vexa_core::Sum;


// f over the elements 0 .. n-1, with the counts of rows and matrices of
// three known to the compiler, which then unrolls them.
template <class F>
VEXA_FORCE_INLINE void Each(std::uint32_t n, F f)
{
    if (n == 3) {
        for (std::uint32_t e = 0; e < 3; ++e)
            f(e);
    } else if (n == 9) {
        for (std::uint32_t e = 0; e < 9; ++e)
            f(e);
    } else {
        for (std::uint32_t e = 0; e < n; ++e)
            f(e);
    }
}

template <typename Count>
VEXA_FORCE_INLINE void MatrixProduct(double* d, const double* x, const double* y, Count rows, Count inner,
                                     Count cols)
{
    for (Count i = 0; i < rows; ++i) {
        for (Count j = 0; j < cols; ++j) {
            double sum = 0.0;
            for (Count k = 0; k < inner; ++k)
                sum = Sum(sum, Product(x[i * inner + k], y[k * cols + j]));
            d[i * cols + j] = sum;
        }
    }
}

template <std::uint32_t kRowCount, std::uint32_t kInner, std::uint32_t kCols>
VEXA_FORCE_INLINE void FixedProduct(double* d, const double* x, const double* y)
{
    for (std::uint32_t i = 0; i < kRowCount; ++i) {
        for (std::uint32_t j = 0; j < kCols; ++j) {
            double sum = 0.0;
            for (std::uint32_t k = 0; k < kInner; ++k)
                sum = Sum(sum, Product(x[i * kInner + k], y[k * kCols + j]));
            d[i * kCols + j] = sum;
        }
    }
}

// The value arithmetic's own loops (vexa/core/data_arith.cpp), operand for
// operand: a sum adds the left element to the right one, a matrix product
// starts at 0 and adds the terms in k order.
template <std::uint8_t op>
VEXA_FORCE_INLINE Next Own(const ShapedInstr* ip, double* r)
{
    double* d = r + ip->d;
    const double* x = r + ip->a;
    const double* y = r + ip->b;
    const std::uint32_t n = ip->n;
    if constexpr (op == kSumEach) {
        Each(n, [=](std::uint32_t e) { d[e] = Sum(y[e], x[e]); });
    } else if constexpr (op == kDifferenceEach) {
        Each(n, [=](std::uint32_t e) { d[e] = Difference(x[e], y[e]); });
    } else if constexpr (op == kScaleEach) {
        const double k = y[0];
        Each(n, [=](std::uint32_t e) { d[e] = Product(x[e], k); });
    } else if constexpr (op == kQuotientEach) {
        const double k = y[0];
        if (!(0 < k || 0 > k))
            return Next::kUseTree;
        Each(n, [=](std::uint32_t e) { d[e] = Quotient(x[e], k); });
    } else if constexpr (op == kMatrixProduct) {
        const std::uint32_t inner = ip->inner;
        const std::uint32_t cols = ip->cols;
        if (inner == 3 && cols == 3 && n == 1)
            FixedProduct<1, 3, 3>(d, x, y);
        else if (inner == 3 && cols == 3 && n == 3)
            FixedProduct<3, 3, 3>(d, x, y);
        else
            MatrixProduct(d, x, y, n, inner, cols);
    } else {
        static_assert(op == kCrossProduct, "every instruction of its own has its loop here");
        // Into temporaries first: the formula reads every operand element.
        const double c0 = Difference(Product(x[1], y[2]), Product(x[2], y[1]));
        const double c1 = Difference(Product(x[2], y[0]), Product(x[0], y[2]));
        const double c2 = Difference(Product(x[0], y[1]), Product(x[1], y[0]));
        d[0] = c0;
        d[1] = c1;
        d[2] = c2;
    }
    return Next::kGo;
}

}  // namespace

#if defined(__GNUC__)
// Threaded dispatch, as the scalar interpreter's: the table's rows, then the
// instructions of its own, each ending in its own indirect jump.
RunResult ShapedProgram::Run(double* r) const
{
    static void* const kJump[kShapedOpEnd] = {
#define VEXA_SHAPED_JUMP(Name, ...) &&op_##Name,
        VEXA_OPERATIONS(VEXA_SHAPED_JUMP) VEXA_SHAPED_OPERATIONS(VEXA_SHAPED_JUMP)
#undef VEXA_SHAPED_JUMP
    };
    const std::uint32_t* argSlots = m_arg_slots.data();
    const ShapedInstr* ip = m_code.data();
    goto* kJump[ip->op];

#define VEXA_SHAPED_LABEL(Name, Call)      \
    op_##Name:                             \
    switch (Call) {                        \
    case Next::kGo: break;                 \
    case Next::kUseTree: return RunResult::kUseTree; \
    case Next::kDone: return RunResult::kDone;       \
    }                                      \
    ++ip;                                  \
    goto* kJump[ip->op];
#define VEXA_SHAPED_TABLE_LABEL(Name, ...) VEXA_SHAPED_LABEL(Name, (ScalarStep<k##Name>(ip, r, argSlots)))
#define VEXA_SHAPED_OWN_LABEL(Name) VEXA_SHAPED_LABEL(Name, (Own<k##Name>(ip, r)))
    VEXA_OPERATIONS(VEXA_SHAPED_TABLE_LABEL)
    VEXA_SHAPED_OPERATIONS(VEXA_SHAPED_OWN_LABEL)
#undef VEXA_SHAPED_OWN_LABEL
#undef VEXA_SHAPED_TABLE_LABEL
#undef VEXA_SHAPED_LABEL
}
#else
RunResult ShapedProgram::Run(double* r) const
{
    const std::uint32_t* argSlots = m_arg_slots.data();
    for (const ShapedInstr* ip = m_code.data();; ++ip) {
        Next next = Next::kUseTree;
        switch (ip->op) {
#define VEXA_SHAPED_CASE(Name, ...) \
    case k##Name: next = ScalarStep<k##Name>(ip, r, argSlots); break;
            VEXA_OPERATIONS(VEXA_SHAPED_CASE)
#undef VEXA_SHAPED_CASE
#define VEXA_SHAPED_OWN_CASE(Name) \
    case k##Name: next = Own<k##Name>(ip, r); break;
            VEXA_SHAPED_OPERATIONS(VEXA_SHAPED_OWN_CASE)
#undef VEXA_SHAPED_OWN_CASE
        }
        if (next == Next::kUseTree)
            return RunResult::kUseTree;
        if (next == Next::kDone)
            return RunResult::kDone;
    }
}
#endif

}  // namespace vexa_compiled
