#ifndef VEXA_COMPILED_COMPILED_SYSTEM_H
#define VEXA_COMPILED_COMPILED_SYSTEM_H

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "vexa/compiled/compiled_expression.h"
#include "vexa/core/export.h"

class ICalculator;

namespace vexa_compiled {
struct SystemCore;
struct SystemSpace;
}

// Many expressions over the same parameters, as one model: every output and
// the Jacobian of all outputs in one call.
//
//   std::vector<ICalculator*> outputs = {drive, force, torque};  // parsed with the same names
//   auto model = vexa::CompiledSystem::Make(outputs, 3, &why);   // null: why says
//   vexa::SystemWorkspace ws(*model);
//   double values[3], jacobian[3 * 3];
//   vexa::Report r = model->Jacobian(point, values, jacobian, ws);
//
// One program computes every output: a piece several outputs share (a
// SIN(OMEGA*TIME), a STEP ramp) is computed once per point. Every value is,
// bit for bit, what the output's calculator's Evaluate gives; a point the
// program cannot finish is evaluated output by output, each as its own
// CompiledExpression would.
namespace vexa {

class SystemWorkspace;

// The reports of a system count values, not points: an entry's index is the
// value's place in the results, output + point * outputCount().
class VEXA_API CompiledSystem {
public:
    // Every output reads the same parameter values: parameter k of each is
    // the system's parameter k. params is their count (-1: one more than the
    // highest index any output reads). Null, with the reason in *why, for
    // no outputs, a null calculator, or one CompiledExpression::Make refuses.
    static std::unique_ptr<CompiledSystem> Make(const std::vector<ICalculator*>& outputs, int params = -1,
                                                std::string* why = nullptr);
    // Output i's parameter k is the system's parameter reads[i][k]: each
    // reads[i] holds distinct indices in [0, params), one per parameter of
    // output i.
    static std::unique_ptr<CompiledSystem> Make(const std::vector<ICalculator*>& outputs,
                                                const std::vector<std::vector<int> >& reads, int params,
                                                std::string* why = nullptr);
    ~CompiledSystem();

    int outputCount() const;
    int paramCount() const;
    // Outputs the shared program computes; the others (a cross product
    // inside, say) are evaluated as trees, each alone.
    int programOutputs() const;
    // The output's own compiled form, over its own parameters (reads(i)).
    const CompiledExpression& output(int i) const;
    const std::vector<int>& reads(int i) const;

    // One point: params holds paramCount() values, outputs receives
    // outputCount(). An output without a value gets NaN and is reported. A
    // workspace of another system is refused with std::invalid_argument.
    Report Evaluate(const double* params, double* outputs, SystemWorkspace& ws, bool strict = false) const;

    // Point i's outputs go to outputs + i * outputCount(); columns has
    // paramCount() entries and must not overlap outputs. A count or stride
    // no buffer could match is refused with std::length_error before
    // anything is written; so in JacobianMany.
    Report EvaluateMany(std::size_t n, const Column* columns, double* outputs,
                        const Options& options = Options()) const;

    // The values (outputs may be null) and every first partial derivative,
    // jacobian[i * paramCount() + k] = d output i / d parameter k, exact to
    // rounding as CompiledExpression::Gradient is (by one reverse sweep per
    // output over the shared program, through only the instructions that
    // output depends on). Always strict; a failed output's row is NaN and the
    // output reported.
    Report Jacobian(const double* params, double* outputs, double* jacobian, SystemWorkspace& ws) const;

    // Point i's Jacobian at jacobians + i * outputCount() * paramCount().
    Report JacobianMany(std::size_t n, const Column* columns, double* outputs, double* jacobians,
                        const Options& options = Options()) const;

    // The entries of the Jacobian that can be other than zero, as (output,
    // parameter), row by row: output i depends on parameter k when its
    // instructions read k, registered functions followed into their
    // programs. Every other entry is zero at every point.
    const std::vector<std::pair<int, int> >& Sparsity() const;

    CompiledSystem(const CompiledSystem&) = delete;
    CompiledSystem& operator=(const CompiledSystem&) = delete;

private:
    friend class SystemWorkspace;
    explicit CompiledSystem(vexa_compiled::SystemCore* core);
    vexa_compiled::SystemCore* m_core;
};

// The scratch memory one thread evaluates a CompiledSystem in.
class VEXA_API SystemWorkspace {
public:
    explicit SystemWorkspace(const CompiledSystem& s);
    ~SystemWorkspace();
    SystemWorkspace(const SystemWorkspace&) = delete;
    SystemWorkspace& operator=(const SystemWorkspace&) = delete;

private:
    friend class CompiledSystem;
    vexa_compiled::SystemSpace* m_space;
};

}  // namespace vexa

#endif
