#ifndef VEXA_COMPILED_SNAPSHOT_H
#define VEXA_COMPILED_SNAPSHOT_H

#include <string>

class Expression;
class ICalculator;

// Private copies of calculators for the compiled forms. Internal.
namespace vexa_compiled {

// A copy of e made of fresh nodes over fresh calculators: every calculator
// its tree calls (built-ins, registered expressions, central-difference
// wrappers) is copied the same way, each distinct one once. Evaluating the
// copy therefore writes nobody else's held parameters, and making it changes
// nothing in e, not even a reference count. The copy's tree is one the
// library built, so it runs as a program where it can.
//
// Null, with the reason in why, when e holds what cannot be copied
// faithfully: a node or calculator of a class the library does not know, a
// parameter leaf bound to another calculator, or calls nested deeper than
// any expression the library builds. The caller owns the copy (Release).
Expression* PrivateCopy(Expression& e, std::string& why);

}  // namespace vexa_compiled

#endif
