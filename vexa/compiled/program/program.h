#ifndef VEXA_COMPILED_PROGRAM_H
#define VEXA_COMPILED_PROGRAM_H

#include <cstdint>
#include <exception>
#include <vector>

#include "vexa/calc/operations.h"
#include "vexa/core/data.h"

class ICalculator;

// The compiled form of an expression tree: a flat list of instructions over
// a file of double registers. Constants sit in registers filled once when the
// program is made; parameters are loaded into theirs before each run; every
// instruction writes one register of its own, so a value computed once is
// read by every use (equal subtrees share one instruction).
//
// A program covers evaluations in which every value is a scalar. Whatever it
// cannot finish the way the tree would (a refused built-in, a division by
// zero, a cross product, a non-scalar result of a called function) makes the
// run stop with kUseTree; the caller then evaluates the tree from the start,
// which gives the tree's value, null result or thrown code. Instructions run
// in the order the tree evaluates its nodes, so nothing the host can observe
// (the held parameters of called registered functions) happens before such a
// stop that the tree would not have done. Internal to the library.
namespace vexa_compiled {

// The opcodes, their operand shapes and classes: the table of operations.
using namespace vexa_ops;

struct Instr {
    std::uint8_t op;
    std::uint32_t d;
    std::uint32_t a;
    std::uint32_t b;
    std::uint32_t c;
};

// A central difference, possibly of a central difference: the built-in at
// the bottom and, from the outermost wrapper inward, the argument each level
// shifts by the step.
struct DiffChain {
    std::uint8_t base;
    std::vector<int> shifted;
};

// The central difference the chain stands for, at the argument values args;
// false where a step calculator or the built-in would refuse.
bool CentralDifference(const DiffChain& chain, const double* args, int n, double& out);

enum class RunResult { kDone, kUseTree };

// What a run needs besides the registers: argument values for calls of other
// calculators, reused from run to run.
struct CallSpace {
    std::vector<VEXA_Data> args;
    // An exception a call threw inside machine code, until it is thrown
    // again outside.
    std::exception_ptr pending;
};

class Program {
public:
    // The registers as the program starts: constants in place, the rest 0.
    const std::vector<double>& initialRegisters() const { return m_init; }
    // The smallest parameter count a run needs: one more than the highest
    // parameter index the tree reads.
    int neededParams() const { return m_needed_params; }
    // (parameter index, register) pairs to load before a run.
    const std::vector<std::pair<int, std::uint32_t> >& paramLoads() const { return m_loads; }
    std::uint32_t resultRegister() const { return m_result; }
    // Every tree's result of a program made from several (one for one tree).
    const std::vector<std::uint32_t>& resultRegisters() const { return m_results; }
    // Largest argument count of a call of another calculator, 0 if none.
    int callArity() const { return m_call_arity; }
    std::size_t size() const { return m_code.size(); }

    // Runs the instructions over r, whose parameter registers are loaded.
    RunResult Run(double* r, CallSpace& space) const;

    // The instruction stream, for other ways of running it (over many points
    // at once, or with derivatives). The last instruction is kReturn.
    const std::vector<Instr>& code() const { return m_code; }
    // Registers of the argument lists of list instructions (a, b index here).
    const std::vector<std::uint32_t>& argRegisters() const { return m_arg_regs; }
    const std::vector<DiffChain>& chains() const { return m_chains; }
    // The calculators kCall instructions call, by their c.
    const std::vector<ICalculator*>& calls() const { return m_calls; }

private:
    friend class Compiler;
    friend class ShapedProgram;

    std::vector<Instr> m_code;
    std::vector<std::uint32_t> m_arg_regs;
    std::vector<double> m_init;
    std::vector<std::pair<int, std::uint32_t> > m_loads;
    std::vector<DiffChain> m_chains;
    std::vector<ICalculator*> m_calls;
    std::uint32_t m_result = 0;
    std::vector<std::uint32_t> m_results;
    int m_needed_params = 0;
    int m_call_arity = 0;
};

}  // namespace vexa_compiled

#endif
