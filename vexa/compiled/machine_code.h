#ifndef VEXA_COMPILED_MACHINE_CODE_H
#define VEXA_COMPILED_MACHINE_CODE_H

#include <cstdint>
#include <memory>
#include <vector>

#include "vexa/compiled/program/program.h"
#include "vexa/core/executable_memory.h"

class ICalculator;

// A program turned into machine code for the processor the library runs
// on (vexa/compiled/x86_64, vexa/compiled/aarch64) that performs a whole
// evaluation of one Expression: it takes the host's parameters (scalars into
// held scalars, as the parameter copy would), runs the instructions with the
// values in the processor's registers, and writes the scalar result, answering as
// Evaluate would. Whatever it does not expect (another parameter count, a
// value that is not a scalar) it leaves to the long way, by a jump; where
// the program would hand over to the tree, it jumps to the tree; an
// exception from a called calculator is carried past the machine code and
// thrown again outside it. Internal to the library.
namespace vexa_compiled {

// Where the fields the machine code reads and writes lie.
struct Layout {
    std::int32_t param_count;  // ICalculator's held parameter count
    std::int32_t params;       // ICalculator's held parameter array
    std::int32_t value_size;   // sizeof(VEXA_Data)
    std::int32_t value_shape;  // its rows, then its columns (two ints)
    std::int32_t value_data;   // its element pointer
    std::int32_t value_space;  // its inline elements
};

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
    // For the code of values of shapes: the result made from its elements,
    // which the code has left in their homes, where the host's value does
    // not hold its elements in its own buffer; answers true.
    FastEvaluate shaped_result = nullptr;
};

// The code of a shaped program (ShapedProgram::Unrolled) takes and gives
// values of the shapes it was made for in place of scalars: each parameter
// of its shape in its own buffer (at most nine elements) into a held value
// of the same shape and buffer, its elements copied as the assignment copies
// them; the result into the host's value in place. The registers of
// a parameter's elements follow one another from first, with room for the
// whole buffer; kUnread where the program reads none.
struct ValueShapes {
    static constexpr std::uint32_t kUnread = 0xFFFFFFFFu;
    struct Value {
        int rows;
        int cols;
        std::uint32_t first;
        // Rows, then columns, as one 8-byte word of a value reads them.
        std::uint64_t ShapeWord() const
        {
            return std::uint64_t(std::uint32_t(rows)) | std::uint64_t(std::uint32_t(cols)) << 32;
        }
    };
    std::vector<Value> params;
    Value result;

    // Whether they fit a program of count parameters and registers
    // registers: every value of at most nine elements, every run of
    // registers inside the program (a parameter's with room for nine), an
    // exit for the result.
    bool Fit(int count, std::size_t registers, const Exits& exits) const;
};

// The C++ functions the machine code of every processor calls.
// The evaluation of a central difference's chain over n arguments: 1 with
// the value in *out, 0 where the tree must take over.
int CallDifference(const DiffChain* chain, const double* args, int n, double* out);

// A call of another calculator with the values of registers regs[0..n) of
// r: 0 with the scalar in *out; 1: hand over to the tree; 2: it threw, and
// the exception waits in space. space->args holds n (checked when the code
// is made).
int CallCalculator(CallSpace* space, ICalculator* calc, const std::uint32_t* regs, const double* r, int n,
                   double* out);

// Throws the exception waiting in space; reached by a jump once the code has
// taken its frame down, so that it leaves from ordinary C++ frames.
int Rethrow(CallSpace* space);

class MachineCode {
public:
    // Code for program, run with the registers and call space given, for
    // evaluations with count parameters. Null where the platform gives no
    // executable memory or the program is larger than this back end takes.
    static std::unique_ptr<MachineCode> Make(const Program& program, int count, double* registers,
                                             CallSpace* space, const Layout& layout, const Exits& exits);
    // The same for the unrolled program of a shaped one, whose parameters
    // and result have the shapes given; it calls no other calculator.
    static std::unique_ptr<MachineCode> MakeShaped(const Program& program, const ValueShapes& shapes,
                                                   double* registers, const Layout& layout, const Exits& exits);

    FastEvaluate entry() const { return m_entry; }

private:
    // The code in executable memory, with its unwind information (empty
    // where the convention registers none); null where the platform gives
    // no such memory.
    static std::unique_ptr<MachineCode> FromBytes(const std::vector<std::uint8_t>& bytes,
                                                  const std::vector<std::uint8_t>& unwind);

    vexa_platform::ExecutableMemory m_memory;
    FastEvaluate m_entry = nullptr;
};

}  // namespace vexa_compiled

#endif
