#ifndef VEXA_CALC_OPERATIONS_H
#define VEXA_CALC_OPERATIONS_H

#include <cstdint>

#include "vexa/calc/builtin_math.h"

// The table of operations: one row per operator, per built-in the library
// computes, and per instruction of the compiled program that is neither.
// Everything that lists operations is made from it: the opcodes, the
// built-ins' implementations and names, their call forms, the argument
// counts and operand shapes, the refusal rules, the interpreter's and the
// runners' dispatch, the gradient kernels. The mathematics of each built-in
// (its value and its partial derivatives) lives in operation_math.h, one
// specialization per row; a row without one does not compile.
//
// Columns:
//   Name     the opcode is k##Name
//   Text     the name expressions call it by ("" for none)
//   Kind     kOperator (a value-arithmetic operator, done by each runner),
//            kUnary, kBinary (scalars in a, b), kList (scalars in a list),
//            kSeries (x, x0 scalars, the rest read by their first element,
//            in a list), kInternal (the program's own, done by each runner)
//   Fewest, Most  the argument counts a call may have
//   Refusal  which arguments it refuses (it never finishes there):
//            kNone, kArc (|x| > 1), kLog (x <= 0), kSqrt (x < 0),
//            kDivisor (0 or NaN divisor), kRuns (may stop: calls, ends)
//   Gradient kSelection (selects or flips a sign: inline in the runners),
//            kKernel (value and partials by its kernel), kOwn (the runner's)
//   Form, Summary  the call form and the line the listings show
//
// Rows are grouped by kind for reading; nothing depends on their order.
#define VEXA_OPERATIONS(X)                                                                                       \
    X(Add, "", kOperator, 2, 2, kNone, kOwn, "", "")                                                             \
    X(Sub, "", kOperator, 2, 2, kNone, kOwn, "", "")                                                             \
    X(Mul, "", kOperator, 2, 2, kNone, kOwn, "", "")                                                             \
    X(Div, "", kOperator, 2, 2, kDivisor, kOwn, "", "")                                                          \
    X(Pow, "", kOperator, 2, 2, kNone, kOwn, "", "")                                                             \
    X(Abs, "ABS", kUnary, 1, 1, kNone, kSelection, "ABS(x)", "absolute value")                                   \
    X(Sin, "SIN", kUnary, 1, 1, kNone, kKernel, "SIN(x)", "sine (radians)")                                      \
    X(Cos, "COS", kUnary, 1, 1, kNone, kKernel, "COS(x)", "cosine (radians)")                                    \
    X(Tan, "TAN", kUnary, 1, 1, kNone, kKernel, "TAN(x)", "tangent (radians)")                                   \
    X(Sinh, "SINH", kUnary, 1, 1, kNone, kKernel, "SINH(x)", "hyperbolic sine")                                  \
    X(Cosh, "COSH", kUnary, 1, 1, kNone, kKernel, "COSH(x)", "hyperbolic cosine")                                \
    X(Tanh, "TANH", kUnary, 1, 1, kNone, kKernel, "TANH(x)", "hyperbolic tangent")                               \
    X(Atan, "ATAN", kUnary, 1, 1, kNone, kKernel, "ATAN(x)", "arc tangent")                                      \
    X(Exp, "EXP", kUnary, 1, 1, kNone, kKernel, "EXP(x)", "e to the power x")                                    \
    X(Aint, "AINT", kUnary, 1, 1, kNone, kKernel, "AINT(x)", "x truncated toward zero")                          \
    X(Anint, "ANINT", kUnary, 1, 1, kNone, kKernel, "ANINT(x)",                                                  \
      "x rounded to the nearest whole number, halves away from zero")                                            \
    X(Asin, "ASIN", kUnary, 1, 1, kArc, kKernel, "ASIN(x)", "arc sine, |x| <= 1")                                \
    X(Acos, "ACOS", kUnary, 1, 1, kArc, kKernel, "ACOS(x)", "arc cosine, |x| <= 1")                              \
    X(Log, "LOG", kUnary, 1, 1, kLog, kKernel, "LOG(x)", "natural logarithm, x > 0")                             \
    X(Log10, "LOG10", kUnary, 1, 1, kLog, kKernel, "LOG10(x)", "base-10 logarithm, x > 0")                       \
    X(Sqrt, "SQRT", kUnary, 1, 1, kSqrt, kKernel, "SQRT(x)", "square root, x >= 0")                              \
    X(Atan2, "ATAN2", kBinary, 2, 2, kNone, kKernel, "ATAN2(y, x)", "angle of the point (x, y); y is the ordinate") \
    X(Max, "MAX", kBinary, 2, 2, kNone, kSelection, "MAX(a, b)", "the larger of a and b")                        \
    X(Min, "MIN", kBinary, 2, 2, kNone, kSelection, "MIN(a, b)", "the smaller of a and b")                       \
    X(Mod, "MOD", kBinary, 2, 2, kNone, kKernel, "MOD(a, b)", "remainder of a / b with the sign of a")           \
    X(Sign, "SIGN", kBinary, 2, 2, kNone, kSelection, "SIGN(a, b)", "|a| when b > 0, else -|a|")                 \
    X(If, "IF", kList, 4, 4, kNone, kSelection, "IF(x, neg, zero, pos)  or  IF(x: neg, zero, pos)",              \
      "neg when x < 0, zero when x = 0, pos otherwise")                                                          \
    X(Step, "STEP", kList, 5, 5, kNone, kKernel, "STEP(x, x0, h0, x1, h1)", "cubic step from h0 at x0 to h1 at x1") \
    X(Step5, "STEP5", kList, 5, 5, kNone, kKernel, "STEP5(x, x0, h0, x1, h1)",                                   \
      "quintic step from h0 at x0 to h1 at x1")                                                                  \
    X(Havsin, "HAVSIN", kList, 5, 5, kNone, kKernel, "HAVSIN(x, x0, h0, x1, h1)",                                \
      "haversine step from h0 at x0 to h1 at x1")                                                                \
    X(Shf, "SHF", kList, 6, 6, kNone, kKernel, "SHF(x, x0, a, w, phi, b)", "a*sin(w*(x - x0) - phi) + b")        \
    X(Impact, "IMPACT", kList, 7, 7, kNone, kKernel, "IMPACT({dist}, {vel}, x1, k, e, cmax, d)",                 \
      "one-sided contact force below x1; two arguments must be braced result objects")                           \
    X(Sweep, "SWEEP", kList, 7, 7, kNone, kKernel, "SWEEP(x, a, x0, f0, x1, f1, dx)",                            \
      "sine of amplitude a, frequency rising from f0 at x0 to f1 at x1, ramped in over 0..dx")                   \
    X(Bistop, "BISTOP", kList, 8, 8, kNone, kKernel, "BISTOP({dist}, {vel}, x1, x2, k, e, cmax, d)",             \
      "two-sided contact force outside [x1, x2]; two arguments must be braced result objects")                   \
    X(Poly, "POLY", kSeries, 3, 2 + vexa_math::kMaxCoefficients, kNone, kKernel,                                 \
      "POLY(x, x0, c0[, c1, ... c30])", "sum of ci*(x - x0)^i")                                                  \
    X(Cheby, "CHEBY", kSeries, 3, 2 + vexa_math::kMaxCoefficients, kNone, kKernel,                               \
      "CHEBY(x, x0, c0[, c1, ... c30])", "sum of ci*Ti(x - x0), Chebyshev polynomials")                          \
    X(Forcos, "FORCOS", kSeries, 4, 3 + vexa_math::kMaxCoefficients, kNone, kKernel,                             \
      "FORCOS(x, x0, w, c0[, c1, ... c30])", "c0 + sum of ci*cos(i*w*(x - x0))")                                 \
    X(Forsin, "FORSIN", kSeries, 4, 3 + vexa_math::kMaxCoefficients, kNone, kKernel,                             \
      "FORSIN(x, x0, w, c0[, c1, ... c30])", "c0 + sum of ci*sin(i*w*(x - x0))")                                 \
    /* A central difference of a built-in: list in a, b; c indexes the chains. */                                \
    X(NumDiff, "", kInternal, 0, -1, kRuns, kOwn, "", "")                                                        \
    /* A call of another calculator: list in a, b; c indexes the calculators. */                                 \
    X(Call, "", kInternal, 0, -1, kRuns, kOwn, "", "")                                                           \
    /* Hands over to the tree at this point. */                                                                  \
    X(Stop, "", kInternal, 0, -1, kRuns, kOwn, "", "")                                                           \
    X(Return, "", kInternal, 0, -1, kRuns, kOwn, "", "")

namespace vexa_ops {

enum Op : std::uint8_t {
#define VEXA_OP_ENUM(Name, ...) k##Name,
    VEXA_OPERATIONS(VEXA_OP_ENUM)
#undef VEXA_OP_ENUM
    kOpCount
};

enum class Kind : std::uint8_t { kOperator, kUnary, kBinary, kList, kSeries, kInternal };
enum class Refusal : std::uint8_t { kNone, kArc, kLog, kSqrt, kDivisor, kRuns };
enum class GradientRule : std::uint8_t { kOwn, kSelection, kKernel };

struct Row {
    const char* text;
    Kind kind;
    int fewest;
    int most;
    Refusal refusal;
    GradientRule gradient;
    const char* form;
    const char* summary;
};

constexpr Row kRows[kOpCount] = {
#define VEXA_OP_ROW(Name, Text, K, Fewest, Most, R, G, Form, Summary) \
    {Text, Kind::K, Fewest, Most, Refusal::R, GradientRule::G, Form, Summary},
    VEXA_OPERATIONS(VEXA_OP_ROW)
#undef VEXA_OP_ROW
};

constexpr const Row& RowOf(Op op) { return kRows[op]; }

// A built-in the library computes: it has a name and an implementation.
constexpr bool IsBuiltin(Op op)
{
    return kRows[op].kind != Kind::kOperator && kRows[op].kind != Kind::kInternal;
}

// Where the instruction reads its operands: one register in a, two in a
// and b, or a list of registers (first index in a, count in b).
enum class Operands : std::uint8_t { kOne, kTwo, kList, kNone };
constexpr Operands OperandsOf(Op op)
{
    switch (kRows[op].kind) {
    case Kind::kUnary: return Operands::kOne;
    case Kind::kOperator:
    case Kind::kBinary: return Operands::kTwo;
    case Kind::kList:
    case Kind::kSeries: return Operands::kList;
    case Kind::kInternal: return op == kNumDiff || op == kCall ? Operands::kList : Operands::kNone;
    }
    return Operands::kNone;
}

// Whether an instruction can stop a run or reach the host, so that it must
// run even when nothing reads its value.
constexpr bool HasEffect(Op op) { return kRows[op].refusal != Refusal::kNone; }

// The longest argument list of any built-in.
constexpr int MostArguments()
{
    int most = 0;
    for (const Row& row : kRows)
        most = row.most > most ? row.most : most;
    return most;
}
constexpr int kMostArguments = MostArguments();

// Whether the arguments v are ones an operation with refusal r accepts.
template <Refusal r>
inline bool Accepts(const double* v)
{
    if constexpr (r == Refusal::kArc)
        return vexa_math::InArcDomain(v[0]);
    else if constexpr (r == Refusal::kLog)
        return vexa_math::InLogDomain(v[0]);
    else if constexpr (r == Refusal::kSqrt)
        return vexa_math::InSqrtDomain(v[0]);
    else if constexpr (r == Refusal::kDivisor)
        return 0 < v[1] || 0 > v[1];
    else
        return true;
}

}  // namespace vexa_ops

#endif
