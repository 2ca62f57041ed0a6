#ifndef VEXA_COMPILED_MACHINE_CODE_H
#define VEXA_COMPILED_MACHINE_CODE_H

#include <cstdint>
#include <memory>

#include "vexa/compiled/program/program.h"
#include "vexa/compiled/x86_64/host_data.h"
#include "vexa/core/executable_memory.h"

class ICalculator;

// A program turned into x86-64 machine code that performs a whole
// evaluation of one Expression: it takes the host's parameters (scalars into
// held scalars, as the parameter copy would), runs the instructions with the
// values in xmm registers, and writes the scalar result, answering as
// Evaluate would. Whatever it does not expect (another parameter count, a
// value that is not a scalar) it leaves to the long way, by a jump; where
// the program would hand over to the tree, it jumps to the tree; an
// exception from a called calculator is carried past the machine code and
// thrown again outside it. Internal to the library.
namespace vexa_compiled {

typedef bool (*FastEvaluate)(ICalculator& self, int count, VEXA_Data* params, VEXA_Data& result);

// How many one-step evaluations of an Expression run in the interpreter
// before its program is turned into machine code: an expression evaluated a
// few times does not repay the translation (and the page of memory its code
// takes). VEXA_MACHINE_CODE_AFTER sets another count; a negative one turns
// machine code off everywhere, gradients included (the interpreters then run
// everything), for comparing the two.
int RunsBeforeMachineCode();

// The C++ the machine code jumps to in place of returning.
struct Exits {
    // The whole evaluation the long way (SetParams, then Calculate).
    FastEvaluate general;
    // Finishes an evaluation whose parameters are copied by evaluating the
    // tree.
    FastEvaluate tree;
    // result = VEXA_Data(v) for a result whose storage is not a scalar's;
    // answers true.
    bool (*assign)(VEXA_Data& result, double v);
};

class MachineCode {
public:
    // Code for program, run with the registers and call space given, for
    // evaluations with count parameters. Null where the platform gives no
    // executable memory or the program is larger than this back end takes.
    static std::unique_ptr<MachineCode> Make(const Program& program, int count, double* registers,
                                             CallSpace* space, const Layout& layout, const Exits& exits);

    FastEvaluate entry() const { return m_entry; }

private:
    vexa_platform::ExecutableMemory m_memory;
    FastEvaluate m_entry = nullptr;
};

}  // namespace vexa_compiled

#endif
