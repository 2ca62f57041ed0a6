#ifndef VEXA_COMPILED_EXACT_FORWARD_RUN_H
#define VEXA_COMPILED_EXACT_FORWARD_RUN_H

#include <vector>

#include "vexa/compiled/exact/dual.h"
#include "vexa/compiled/form.h"

// Forward-mode differentiation of the compiled programs over nested dual
// numbers: one run per mixed partial, at a cost that grows with the size of
// the program times 3^order, never with the number of paths through it (a
// value read twice is computed once). Internal.
namespace vexa_compiled {

// The deepest nesting the runners are made for: partials up to this order.
constexpr int kMostOrder = 4;

// Dual numbers nested order times over double.
template <int order>
struct Nested {
    typedef vexa_exact::Dual<typename Nested<order - 1>::Type> Type;
};
template <>
struct Nested<0> {
    typedef double Type;
};

// The registers of every unit of a form, for one thread.
template <typename T>
struct ForwardSpace {
    std::vector<std::vector<T> > regs;  // by unit id, made on first use
    std::vector<T> args;                // the seeded point
};

// Register files for every order, made on first use. Their constants
// belong to one form: a scratch serves the form it was first used with only.
struct ForwardScratch {
    ForwardSpace<Nested<1>::Type> order1;
    ForwardSpace<Nested<2>::Type> order2;
    ForwardSpace<Nested<3>::Type> order3;
    ForwardSpace<Nested<4>::Type> order4;
};

// Runs u's program (present, given count >= its needed arguments) over T at
// args into value: kGoes, or the first reason the point could not finish.
template <typename T>
StopReason RunForward(const Unit& u, ForwardSpace<T>& s, const T* args, int count, T& value);

// The partial d^order value / d x[at[0]] ... d x[at[order - 1]] of the top
// unit of form at the point x (count values) into out; order from 1 to
// kMostOrder, every index below count.
StopReason ForwardPartial(const Form& form, ForwardScratch& scratch, const double* x, int count, const int* at,
                          int order, double& out);

}  // namespace vexa_compiled

#endif
