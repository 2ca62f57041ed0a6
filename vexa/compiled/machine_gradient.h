#ifndef VEXA_COMPILED_MACHINE_GRADIENT_H
#define VEXA_COMPILED_MACHINE_GRADIENT_H

#include <exception>
#include <memory>

#include "vexa/compiled/form.h"
#include "vexa/core/executable_memory.h"

// The one-point run with its reverse sweep (vexa/compiled/run/point_run.cpp)
// as machine code (made by vexa/compiled/x86_64; elsewhere the runner runs):
// the four operations and their partials, and the sweep, are written out; every other instruction is the runner's own step,
// called. Same values, same partials, same reasons to stop. The code is
// read-only and takes everything a thread owns as arguments, so any number of
// threads may run it at once. Internal.
namespace vexa_compiled {

// What one run reads and writes.
struct GradientCall {
    const double* args;  // the point
    double* regs;        // the unit's registers in this thread's workspace
    double* tape;        // its partials
    double* adjoint;     // d result / d register
    double* grad;        // out: d value / d args[k], for k < count
    Space* space;
    double value;        // out
    // An exception a step threw inside the machine code, thrown again by Run
    // once the code has returned (no exception may cross machine code).
    std::exception_ptr pending;
};

class GradientCode {
public:
    // Code for u's program at count arguments; null where the platform gives
    // no executable memory or the program is larger than this back end takes.
    static std::unique_ptr<GradientCode> Make(const Unit& u, int count);

    // kGoes, or why the point could not finish.
    StopReason Run(GradientCall& call) const;

private:
    typedef int (*Entry)(GradientCall* call);
    vexa_platform::ExecutableMemory m_memory;
    Entry m_entry = nullptr;
};

}  // namespace vexa_compiled

#endif
