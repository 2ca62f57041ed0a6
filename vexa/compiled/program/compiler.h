#ifndef VEXA_COMPILED_COMPILER_H
#define VEXA_COMPILED_COMPILER_H

#include <memory>
#include <vector>

#include "vexa/compiled/program/program.h"

class ICalculator;
class INode;

// Turns an expression tree into its program. Internal to the library.
namespace vexa_compiled {

// The program for the tree under root, whose variable leaves read owner's
// parameters. Null when the tree holds something a program cannot finish:
// a node or calculator kind it does not know, a constant that is not a
// scalar, a leaf bound to another calculator, or a step that always hands
// over to the tree (a cross product, a call its built-in refuses whatever
// the values). Such trees are evaluated as trees.
//
// What the program keeps of the tree's work:
// - Constant subtrees are computed now, with the value arithmetic and the
//   built-in implementations the tree itself would call; a subtree that
//   fails (a division by zero, a refused call) stays in the program, which
//   then hands over to the tree when it gets there.
// - Equal subtrees are computed once: equal means the same operator or
//   built-in over the same values. Calls of other calculators are never
//   merged, since each call leaves its arguments in the called calculator.
// - Work whose result is known exactly is left out: x * 1, 1 * x, x / 1 and
//   x - 0 give x itself, bit for bit, when x is the result of an arithmetic
//   operation or a constant (a parameter may be a signalling NaN, which the
//   operation would quiet). x + 0 and x * 0 are kept: they differ from x
//   for x = -0 and for infinities.
// - Nothing is reassociated or fused.
std::unique_ptr<Program> Compile(INode* root, ICalculator* owner);

// A tree among several compiled into one program: its variable leaves read
// owner's parameters, parameter k being the program's reads[k].
struct ProgramRoot {
    INode* root;
    ICalculator* owner;
    std::vector<int> reads;
};

// One program computing every tree, in order, each into a register of its
// own (Program::resultRegisters): equal subtrees are computed once across
// all of them, constants folded as Compile folds them, so every result has
// the bits Compile's program gives it. Null where any tree would be (each is
// checked with Compile first by whoever wants the rest without it), or where
// a leaf reads beyond its reads.
std::unique_ptr<Program> CompileAll(const std::vector<ProgramRoot>& roots);

}  // namespace vexa_compiled

#endif
