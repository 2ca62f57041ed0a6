#ifndef VEXA_COMPILED_SHAPED_PROGRAM_H
#define VEXA_COMPILED_SHAPED_PROGRAM_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "vexa/calc/operations.h"
#include "vexa/compiled/program/program.h"
#include "vexa/core/data.h"
#include "vexa/core/export.h"

class ICalculator;
class INode;
class Expression;

// The program of a tree for one signature: the shapes (rows, cols) of the
// held parameters. Every value has a static shape and a run of slots of its
// own, row-major: a scalar one slot, a 1 x 3 row three, a 3 x 3 matrix nine.
// Scalar operations are the rows of the table of operations over 1 x 1
// operands; the instructions of its own cover the value arithmetic of rows
// and matrices, element for element in the order the value arithmetic takes.
//
// What the value arithmetic would refuse for these shapes (a sum of two
// shapes, a cross product of anything but two 1 x 3 rows, a power or a
// built-in of a non-scalar) is refused when the program is made: the tree
// evaluates and throws or gives null where it always did. What depends on
// the values (a zero or NaN divisor, a built-in's argument outside its
// domain) stops the run; the caller then evaluates the tree from the start.
// A program calls no calculator (registered functions, step calculators),
// so nothing the host can see happens before such a stop. Internal.
namespace vexa_compiled {

// The instructions of shaped programs beyond the table's scalar ones:
//   SumEach         d[e] = b[e] + a[e] over n elements
//   DifferenceEach  d[e] = a[e] - b[e]
//   ScaleEach       d[e] = a[e] * k, k the scalar in b
//   QuotientEach    d[e] = a[e] / k, k in b; a zero or NaN k stops
//   MatrixProduct   n x inner times inner x cols
//   CrossProduct    1 x 3 rows
#define VEXA_SHAPED_OPERATIONS(X) X(SumEach) X(DifferenceEach) X(ScaleEach) X(QuotientEach) X(MatrixProduct) X(CrossProduct)

enum ShapedOp : std::uint8_t {
    kShapedOpStart = kOpCount - 1,  // the first of its own is kOpCount
#define VEXA_SHAPED_ENUM(Name) k##Name,
    VEXA_SHAPED_OPERATIONS(VEXA_SHAPED_ENUM)
#undef VEXA_SHAPED_ENUM
    kShapedOpEnd
};

struct ShapedInstr {
    std::uint8_t op;
    std::uint32_t d;
    std::uint32_t a;  // first slot; first index of the argument slots for lists
    std::uint32_t b;  // first slot; argument count for lists
    std::uint32_t n;  // element count; rows of a matrix product
    std::uint32_t inner;
    std::uint32_t cols;
};

struct Shape {
    int rows;
    int cols;
    bool operator==(const Shape& o) const { return rows == o.rows && cols == o.cols; }
    bool operator!=(const Shape& o) const { return !(*this == o); }
};

// The signature entry of a held value: its shape where it is a scalar, row
// or matrix with elements, {0, 0} for anything else (a null value, or a
// shape with no kind).
Shape SignatureShape(const VEXA_Data& v);

class ShapedProgram {
public:
    struct Load {
        int param;
        std::uint32_t slot;
        std::uint32_t count;
    };

    // The program for the tree under root, whose variable leaves read
    // owner's held parameters, for the count held values of these shapes;
    // null where it would not finish as the tree does (see above).
    static std::unique_ptr<ShapedProgram> Compile(INode* root, ICalculator* owner, const VEXA_Data* held,
                                                  int count);

    const std::vector<double>& initialSlots() const { return m_init; }
    const std::vector<Load>& loads() const { return m_loads; }
    Shape resultShape() const { return m_result_shape; }
    std::uint32_t resultSlot() const { return m_result; }
    std::size_t size() const { return m_code.size(); }

    // Runs the instructions over slots r whose parameter slots are loaded.
    RunResult Run(double* r) const;

    // The same run as a scalar Program for the back ends of machine code:
    // registers numbered as the slots (the start image the same), the
    // temporaries of cross and matrix products after them, every element's
    // operations written out in the order Run takes them. Its result
    // register is the first of the result's slots; its parameter loads name
    // every element's slot. Null for a program that would unroll into more
    // than a few thousand instructions: those stay interpreted.
    std::unique_ptr<Program> Unrolled() const;

    // The instruction stream and the slots of list arguments, for other ways
    // of running it (with derivatives).
    const std::vector<ShapedInstr>& code() const { return m_code; }
    const std::vector<std::uint32_t>& argSlots() const { return m_arg_slots; }

private:
    friend class ShapedCompiler;

    std::vector<ShapedInstr> m_code;
    std::vector<std::uint32_t> m_arg_slots;
    std::vector<double> m_init;
    std::vector<Load> m_loads;
    std::uint32_t m_result = 0;
    Shape m_result_shape{1, 1};
};

// What an expression keeps for its shaped evaluations: the program of the
// last signature seen (null where that signature was refused) and its slots.
// A new signature recompiles, a few times; an expression whose shapes keep
// changing is left to the tree from then on.
struct ShapedCache {
    std::unique_ptr<ShapedProgram> program;
    std::vector<Shape> signature;
    std::vector<double> slots;
    int compiles = 0;
};

// Evaluates the tree under root through the cache's program for the held
// parameters' signature, into result; false where the tree must evaluate
// (a signature the program refuses, or a run that stopped).
bool EvaluateShaped(ShapedCache& cache, INode* root, ICalculator* owner, const VEXA_Data* held, int count,
                    VEXA_Data& result);

// Evaluate in one step where the cache holds a program for the signature
// the parameters bring and every held value already has the shape of its
// parameter, at most nine elements each: the parameter copy then writes the
// elements in place, as the assignment of the general copy would. kNotTaken
// leaves everything untouched; kUseTree has copied the parameters and the
// tree must evaluate.
enum class ShapedEntry { kNotTaken, kDone, kUseTree };
ShapedEntry EvaluateShapedInPlace(ShapedCache& cache, int count, const VEXA_Data* params, VEXA_Data* held,
                                  int heldCount, VEXA_Data& result);

// The instruction count of the shaped program e holds for its last
// signature, 0 for none: for tests that must know which way an evaluation
// went.
VEXA_API std::size_t ShapedProgramSize(Expression& e);
// Whether e's evaluations of that signature run as machine code.
VEXA_API bool RunsShapedMachineCode(Expression& e);

}  // namespace vexa_compiled

#endif
