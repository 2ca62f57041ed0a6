#ifndef VEXA_CORE_EXACT_POW_H
#define VEXA_CORE_EXACT_POW_H

// x raised to y with exactly the bits std::pow returns, in every rounding
// mode and with flush-to-zero or denormals-are-zero set, but computed by
// multiplication when y is a small integer: powers are most of what users
// write with ^, and pow costs many times a product. Everything the fast
// path cannot settle goes to std::pow itself. Internal to the library.
namespace vexa_math {

// Integer exponents from 2 up to this one take the fast path.
const int kMaxFastExponent = 16;

double Pow(double x, double y);

// The fast path alone: x^n for 2 <= n <= kMaxFastExponent by multiplication,
// or std::pow(x, n) when that cannot be proven to give the same bits.
double IntPow(double x, int n);

}  // namespace vexa_math

#endif
