#ifndef VEXA_CALC_CALL_ERRORS_H
#define VEXA_CALC_CALL_ERRORS_H

// The int codes thrown when a call of a registered function cannot go ahead.
// Negative, so they never read as a position in a text.
namespace vexa {

// A registered function was called while it was already being evaluated:
// by another thread at that moment (its one calculator holds the values of
// one call at a time), or by its own tree, through a loop a host wired with
// SetRoot. Thrown by Evaluate, and by parse, which evaluates every call once.
constexpr int kFunctionInUse = -1001;

// An evaluation would run deeper than the library's stack guarantee allows,
// counting the trees of the registered functions it calls. Thrown by parse
// for such a text, and by Evaluate when a registered function grew (SetRoot)
// after its callers were parsed or when the thread's stack is too small.
constexpr int kCallsTooDeep = -1002;

}  // namespace vexa

#endif
