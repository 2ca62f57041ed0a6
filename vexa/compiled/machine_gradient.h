#ifndef VEXA_COMPILED_MACHINE_GRADIENT_H
#define VEXA_COMPILED_MACHINE_GRADIENT_H

#include <cstddef>
#include <exception>
#include <memory>
#include <vector>

#include "vexa/compiled/form.h"
#include "vexa/core/executable_memory.h"

// The one-point run with its reverse sweep (vexa/compiled/run/point_run.cpp)
// as machine code (made by vexa/compiled/x86_64 and vexa/compiled/aarch64;
// elsewhere the runner runs):
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

// What every processor's gradient code shares.
//
// Whether u's program at count arguments is one a back end writes: within
// the sizes the code is made for, and every register, tape position and
// parameter it names inside its array, so that no write of the code goes
// outside what the workspace holds.
bool GradientCodeTakes(const Unit& u, int count);

// One step of the one-point runner, as the code calls it for every
// instruction it does not write out; an exception it throws waits in call,
// and the answer is then kStepThrew.
constexpr int kStepThrew = 255;
int CallStep(const Unit* u, GradientCall* call, const Unit::Step* step, double* r, double* tape);

// The reverse sweep is written group by group: the entries of one
// instruction, which share their result, are u.backs[begin, end), last
// instruction first. f(begin, end) for each.
template <class F>
void ForEachBackGroup(const Unit& u, F f)
{
    const std::vector<Unit::Back>& backs = u.backs;
    for (std::size_t begin = 0; begin < backs.size();) {
        std::size_t end = begin;
        while (end < backs.size() && backs[end].result == backs[begin].result)
            ++end;
        f(begin, end);
        begin = end;
    }
}

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
