#ifndef VEXA_COMPILED_FORM_H
#define VEXA_COMPILED_FORM_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "vexa/compiled/program/program.h"

class Expression;

// The inside of a vexa::CompiledExpression: the programs of a private copy
// of an expression and of every expression it calls, and the workspace one
// thread runs them in. Internal.
namespace vexa_compiled {

// Points per block of the many-point runner, at most: every instruction runs
// over a whole block, so its dispatch is paid once per block. Larger blocks
// pay it less often but read each parameter's column in longer bursts, one
// column after another, which memory serves more slowly than a loop over the
// points reading all columns at once; 64 measured best on the benchmark sets.
constexpr int kBlock = 64;

// Why a run could not finish a point: the first reason, in the order the
// tree evaluates its nodes, which is the order of the instructions.
enum StopReason : std::uint8_t {
    kGoes = 0,
    kRefusal = 1,      // a built-in refused its arguments, or a null value arose
    kZeroDivisor = 2,  // a division by zero, where the tree throws -10001
    kTreeOnly = 3,     // a call only the tree can evaluate
    kTooDeep = 4,      // no stack left for a call: refused with -1002
};

struct Unit;
class GradientCode;
struct ForwardScratch;

// What a kCall instruction calls: a unit, under central differences (the
// wrappers of derivative calculators) shifting these arguments, outermost
// first. Without a unit the call is left to the tree.
struct Callee {
    const Unit* unit = nullptr;
    std::vector<int> shifted;
};

// One expression's program with what running it needs.
struct Unit {
    int id = 0;
    std::unique_ptr<Program> program;  // null: only the tree evaluates it
    std::vector<Callee> callees;       // by the c of kCall

    // The instructions as the one-point runner reads them, the return left
    // out. The operands of a step are operands[first .. first + count); the
    // partial of its result by operand j goes to the tape at position j.
    struct Step {
        std::uint8_t op;
        bool active;  // whether its result depends on a parameter
        std::uint32_t d;
        std::uint32_t c;
        std::uint32_t first;
        std::uint32_t count;
    };
    std::vector<Step> steps;
    std::vector<std::uint32_t> operands;
    // The reverse sweep, last instruction first: d register += d result /
    // d register of its result (the tape at position) times d result / d
    // its result, for every operand that depends on a parameter.
    struct Back {
        std::uint32_t result;
        std::uint32_t operand;
        std::uint32_t position;
    };
    std::vector<Back> backs;
    std::vector<char> active;  // by register
    // By register: a constant that is a number (not a NaN).
    std::vector<char> numberConstant;
    std::vector<std::uint32_t> activeRegisters;
    std::vector<double> tape;  // the partials that never change (of + and -)

    // Whether count arguments are enough for the program.
    bool Runs(int count) const { return program && count >= program->neededParams(); }
};

struct Form {
    Expression* snapshot = nullptr;  // the private copy; owns what the units run (or null, see MakeFormOf)
    int params = 0;
    // Points per block: fewer than kBlock where the programs have so many
    // registers that a workspace would grow too large.
    int block = kBlock;
    std::vector<std::unique_ptr<Unit> > units;  // units[0] is the expression itself

    const Unit& top() const { return *units[0]; }
    // The top unit's gradient run as machine code, made when a gradient is
    // first asked for (most forms, and every C and Python handle that is
    // only evaluated, never ask); null where it cannot be made. Any thread.
    const GradientCode* gradientCode() const
    {
        if (m_gradientMade.load(std::memory_order_acquire))
            return m_gradient.get();
        return MakeGradientCode();
    }
    ~Form();

private:
    const GradientCode* MakeGradientCode() const;
    mutable std::mutex m_gradientLock;
    mutable std::atomic<bool> m_gradientMade{false};
    mutable std::unique_ptr<GradientCode> m_gradient;
};

// Builds the form of e (a private copy is taken first); null with the
// reason in why where the copy cannot be made.
std::unique_ptr<Form> MakeForm(Expression& e, int params, std::string& why);

// A form without a snapshot around a program made elsewhere (its calls'
// calculators must outlive the form), for count parameters.
std::unique_ptr<Form> MakeFormOf(std::unique_ptr<Program> program, int params, std::string& why);

// The registers and tables of one unit for one thread.
struct UnitSpace {
    std::vector<double> block;        // registers x form.block values
    std::vector<const double*> at;    // where each register's block lies
    std::vector<double> regs;         // one point: the registers
    std::vector<double> tape;         // one point: partials of each instruction
    std::vector<double> adjoint;      // one point: d result / d register
};

struct Space {
    explicit Space(const Form& f);
    ~Space();
    Space(const Space&) = delete;
    Space& operator=(const Space&) = delete;

    UnitSpace& of(const Unit& u) { return units[static_cast<std::size_t>(u.id)]; }

    const Form& form;
    std::vector<UnitSpace> units;
    std::vector<double> columns;  // parameter blocks gathered for the runner
    Expression* tree = nullptr;   // private copy for points only the tree can do
    std::vector<VEXA_Data> values;
    std::vector<double> partials;            // one point's gradient, for a single partial
    std::unique_ptr<ForwardScratch> forward;  // the registers of higher derivatives, on first need
};

}  // namespace vexa_compiled

#endif
