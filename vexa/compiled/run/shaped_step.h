#ifndef VEXA_COMPILED_RUN_SHAPED_STEP_H
#define VEXA_COMPILED_RUN_SHAPED_STEP_H

#include <cstdint>

#include "vexa/compiled/program/shaped_program.h"
#include "vexa/compiled/run/scalar_step.h"
#include "vexa/core/float_ops.h"
#include "vexa/core/inline_hints.h"

// The instructions of shaped programs beyond the table's rows, over slots
// of any number type. Internal.
namespace vexa_compiled {

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

template <typename Count, typename T>
VEXA_FORCE_INLINE void MatrixProduct(T* d, const T* x, const T* y, Count rows, Count inner, Count cols)
{
    using vexa_core::Product;
    using vexa_core::Sum;
    for (Count i = 0; i < rows; ++i) {
        for (Count j = 0; j < cols; ++j) {
            T sum(0.0);
            for (Count k = 0; k < inner; ++k)
                sum = Sum(sum, Product(x[i * inner + k], y[k * cols + j]));
            d[i * cols + j] = sum;
        }
    }
}

template <std::uint32_t kRowCount, std::uint32_t kInner, std::uint32_t kCols, typename T>
VEXA_FORCE_INLINE void FixedProduct(T* d, const T* x, const T* y)
{
    using vexa_core::Product;
    using vexa_core::Sum;
    for (std::uint32_t i = 0; i < kRowCount; ++i) {
        for (std::uint32_t j = 0; j < kCols; ++j) {
            T sum(0.0);
            for (std::uint32_t k = 0; k < kInner; ++k)
                sum = Sum(sum, Product(x[i * kInner + k], y[k * kCols + j]));
            d[i * kCols + j] = sum;
        }
    }
}

// The value arithmetic's own loops (vexa/core/data_arith.cpp), operand for
// operand: a sum adds the left element to the right one, a matrix product
// starts at 0 and adds the terms in k order. The slots are doubles, or the
// dual numbers of the exact derivatives.
template <std::uint8_t op, typename T>
VEXA_FORCE_INLINE Next Own(const ShapedInstr* ip, T* r)
{
    using vexa_core::Difference;
    using vexa_core::Product;
    using vexa_core::Quotient;
    using vexa_core::Sum;
    T* d = r + ip->d;
    const T* x = r + ip->a;
    const T* y = r + ip->b;
    const std::uint32_t n = ip->n;
    if constexpr (op == kSumEach) {
        Each(n, [=](std::uint32_t e) { d[e] = Sum(y[e], x[e]); });
    } else if constexpr (op == kDifferenceEach) {
        Each(n, [=](std::uint32_t e) { d[e] = Difference(x[e], y[e]); });
    } else if constexpr (op == kScaleEach) {
        const T k = y[0];
        Each(n, [=](std::uint32_t e) { d[e] = Product(x[e], k); });
    } else if constexpr (op == kQuotientEach) {
        const T k = y[0];
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
        const T c0 = Difference(Product(x[1], y[2]), Product(x[2], y[1]));
        const T c1 = Difference(Product(x[2], y[0]), Product(x[0], y[2]));
        const T c2 = Difference(Product(x[0], y[1]), Product(x[1], y[0]));
        d[0] = c0;
        d[1] = c1;
        d[2] = c2;
    }
    return Next::kGo;
}

}  // namespace vexa_compiled

#endif
