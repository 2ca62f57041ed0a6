#ifndef VEXA_COMPILED_COMPILED_EXPRESSION_H
#define VEXA_COMPILED_COMPILED_EXPRESSION_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "vexa/core/export.h"

class ICalculator;

namespace vexa_compiled {
struct Form;
struct FormAccess;
struct Space;
}

// Evaluation over many points, from many threads, and exact gradients.
//
//   std::string why;
//   auto form = vexa::CompiledExpression::Make(calc, 2, &why);   // null: why says
//   std::vector<double> t(n), v(n), out(n);
//   vexa::Column columns[] = {vexa::Column::Values(t.data()), vexa::Column::Values(v.data())};
//   vexa::Report report = form->EvaluateMany(n, columns, out.data());
//   double grad[2];
//   vexa::Workspace ws(*form);
//   vexa::Outcome at = form->Gradient(point, grad, ws);
//
// Every value equals, bit for bit, what calc->Evaluate gives for the same
// parameter values; a point without a scalar value gets NaN and is reported.
namespace vexa {

// Why a point has no value.
enum class Failure : int {
    kNone = 0,
    kThrown = 1,      // evaluation threw an int, which `code` holds
    kNull = 2,        // the result is a null value (Evaluate answers false)
    kNotScalar = 3,   // the result is a row vector or a matrix
    kRefused = 4,     // strict: a built-in refused its arguments, or a null value arose inside
    kNoGradient = 5,  // the exact gradient cannot follow the point: part of the expression
                      // runs only as a tree there (a cross product, a vector value)
    kWrongShape = 6,  // EvaluateShapedMany: the result's shape is not the one asked for
};
const int kFailureKinds = 7;

// The answer at one point: value is NaN unless failure is kNone.
struct Outcome {
    double value;
    Failure failure;
    int code;  // the thrown int for kThrown, otherwise 0
    bool ok() const { return failure == Failure::kNone; }
};

struct PointFailure {
    std::size_t index;
    Failure failure;
    int code;
};

// What went wrong over many points.
struct Report {
    std::size_t failed = 0;                 // points that got NaN through a failure
    std::size_t by_kind[kFailureKinds] = {};  // failed, split by Failure
    std::vector<PointFailure> first;        // the first failures by index, at most Options::max_reported
    bool ok() const { return failed == 0; }
};

struct Options {
    // Ordinary evaluation follows Evaluate: LOG(X) + 5 at X = -1 is 5, since
    // the refused LOG gives a null value and null + 5 is 5. Strict evaluation
    // reports such a point (kRefused) instead, wherever the expression runs
    // as a program; a point only the tree can evaluate (a cross product, a
    // function whose tree has no program) is evaluated ordinarily.
    bool strict = false;
    // Threads to split the points over; 0 or less means one per hardware
    // thread. Each takes a whole number of blocks.
    int threads = 1;
    std::size_t max_reported = 100;
};

// One parameter's values at the points: point i reads data[i * stride]. A
// stride of 0 holds one value for every point.
struct Column {
    const double* data;
    std::ptrdiff_t stride;
    static Column Values(const double* v) { return {v, 1}; }
    static Column Held(const double* v) { return {v, 0}; }
};

// One parameter's values of any shape at the points: point i's value is the
// rows x cols doubles, row-major, from data + i * stride (a stride of 0 holds
// one value for every point). A 1 x 1 column is a number; the language has
// no column vectors, so cols is 1 only with rows 1.
struct ShapedColumn {
    const double* data;
    std::ptrdiff_t stride;
    int rows;
    int cols;
};

class Workspace;
class ExactDerivativeCalculator;

// An immutable compiled form of an expression, which any number of threads
// may evaluate at once, each with a Workspace of its own.
//
// Make takes a private copy of the expression's tree and of every function it
// calls (registered functions, the wrappers of derivative calculators), with
// their programs: the form never touches the calculators it was made from,
// nor anyone's held parameters, and later changes to them (registering a
// function anew, SetRoot) do not reach it. Points the program cannot finish
// are evaluated by a copy of the tree private to the workspace.
class VEXA_API CompiledExpression {
public:
    // params is the number of parameter values at each point, as the host
    // passes them to Evaluate (-1: one more than the highest index the
    // expression reads). Returns null, with the reason in *why, when calc is
    // not an Expression, or holds something that cannot be copied
    // faithfully: a node or calculator class of the host's own, or a
    // parameter leaf bound to another calculator. Reads calc and what it
    // calls: no other thread may change them meanwhile.
    static std::unique_ptr<CompiledExpression> Make(ICalculator* calc, int params = -1, std::string* why = nullptr);
    ~CompiledExpression();

    int paramCount() const;
    // Whether the expression runs as a program (else every point is
    // evaluated as a tree, correctly but slowly, and has no exact gradient).
    bool runsAsProgram() const;

    // One point: params holds paramCount() values. No int is thrown: a code
    // comes back in the Outcome. A workspace made for another form is
    // refused with std::invalid_argument.
    Outcome Evaluate(const double* params, Workspace& ws, bool strict = false) const;

    // results[i] for point i of n; columns has paramCount() entries, and
    // results must not overlap them. A count (or a stride) no buffer could
    // match, such as a negative count turned unsigned, is refused with
    // std::length_error before anything is written; so in GradientMany.
    Report EvaluateMany(std::size_t n, const Column* columns, double* results,
                        const Options& options = Options()) const;

    // results + i * rows * cols receives point i's value, rows x cols
    // doubles, row-major; columns has paramCount() entries of any shape, and
    // results must not overlap them. Each point is what Evaluate gives with
    // VEXA_Data parameters of those shapes. A point whose value has another
    // shape (kWrongShape), is null or throws gets NaN in all its elements
    // and is reported. Vectors and matrices are evaluated by the tree, so
    // strict applies only where every column and the result are numbers
    // (the call is then EvaluateMany's). A shape the language has not
    // (rows or cols below 1, a column vector, too many elements) is refused
    // with std::invalid_argument, a count or stride no buffer could match
    // with std::length_error, both before anything is written.
    Report EvaluateShapedMany(std::size_t n, const ShapedColumn* columns, int rows, int cols, double* results,
                              const Options& options = Options()) const;

    // The value and every first partial derivative, grad[k] = d value / d
    // parameter k, by reverse-mode differentiation of the program: exact to
    // rounding through every argument of every function. Always strict; a
    // failed point gets NaN in the value and every partial.
    //
    // Where a function is not differentiable, the derivative is that of the
    // branch its value takes: STEP, STEP5, HAVSIN at x = x0 the constant h0
    // (at x = x1 the constant h1); MAX and MIN on a tie the first argument;
    // IF(0, ...) the zero branch; SIGN(a, b) at b = 0 the negative branch;
    // ABS at 0 slope -1 (as SIGN(1, x)); IMPACT and BISTOP at the contact
    // point the free side; SWEEP at x0 and x1 the earlier piece. AINT, ANINT
    // and the quotient inside MOD have slope 0. A term whose value cannot
    // reach the result adds nothing, even where its own slope is infinite.
    //
    // The partials are those of the default floating-point environment
    // whatever rounding, flushing or traps the host has set (it is set for
    // the call and the host's restored, sticky flags included); the value is
    // Evaluate's under the host's environment.
    Outcome Gradient(const double* params, double* grad, Workspace& ws) const;

    // Every second partial derivative of a number-valued expression, H[i *
    // paramCount() + j] = d2 value / d parameter i d parameter j: exact to
    // rounding, symmetric (each pair is computed once), with the branches of
    // Gradient, by forward-mode differentiation over dual numbers. The
    // outcome and its value are Gradient's; a failed point, or a program
    // the second derivative cannot follow (kNoGradient), gets NaN in every
    // element. Costs about paramCount()^2 / 2 evaluations of three times the
    // work each.
    Outcome Hessian(const double* params, double* H, Workspace& ws) const;

    // values[i] and grads[i * paramCount() + k] for point i of n.
    Report GradientMany(std::size_t n, const Column* columns, double* values, double* grads,
                        const Options& options = Options()) const;

    CompiledExpression(const CompiledExpression&) = delete;
    CompiledExpression& operator=(const CompiledExpression&) = delete;

private:
    friend class Workspace;
    friend struct vexa_compiled::FormAccess;
    friend class ExactDerivativeCalculator;
    explicit CompiledExpression(vexa_compiled::Form* form);
    // The partial d^order value / d params[at[0]] ... d params[at[order - 1]]
    // into *partial (NaN where the outcome fails): first order from the
    // gradient, higher orders by forward mode. The caller (the exact
    // derivative calculator, which checks them once) passes an order from 1
    // to the highest, indices below paramCount() and a workspace of this
    // form. The outcome's value is the partial above the first order.
    Outcome PartialAt(const double* params, const int* at, int order, double* partial, Workspace& ws) const;
    vexa_compiled::Form* m_form;
};

// The scratch memory one thread evaluates a CompiledExpression in: the
// registers of its programs and, made on first need, the private tree.
class VEXA_API Workspace {
public:
    explicit Workspace(const CompiledExpression& e);
    ~Workspace();
    Workspace(const Workspace&) = delete;
    Workspace& operator=(const Workspace&) = delete;

private:
    friend class CompiledExpression;
    vexa_compiled::Space* m_space;
};

// EvaluateMany for any calculator, in one call: through a CompiledExpression
// when Make accepts calc, otherwise by calc->Evaluate point by point on this
// thread (options.threads is then ignored).
VEXA_API Report EvaluateMany(ICalculator* calc, int params, std::size_t n, const Column* columns, double* results,
                             const Options& options = Options());

// EvaluateShapedMany for any calculator, in the same way.
VEXA_API Report EvaluateShapedMany(ICalculator* calc, int params, std::size_t n, const ShapedColumn* columns,
                                   int rows, int cols, double* results, const Options& options = Options());

}  // namespace vexa

#endif
