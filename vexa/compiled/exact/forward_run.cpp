#include "vexa/compiled/exact/forward_run.h"

#include "vexa/calc/operation_math.h"
#include "vexa/compiled/stack_room.h"

namespace vexa_compiled {

namespace {

using vexa_exact::Dual;
using vexa_exact::Scalar;

// A central difference, formed as the step calculator forms it (h + x, then
// x - h, and (f1 - f2) / (h + h)): its derivatives are those of the
// difference quotient, exactly what the wrapper computes differentiated.
template <typename T, typename Base>
StopReason Differenced(const std::vector<int>& shifted, std::size_t level, T* args, int n, T& value, Base& base)
{
    if (!RoomForStep())
        return kTooDeep;
    if (level == shifted.size())
        return base(args, value);
    const int k = shifted[level];
    if (k < 0 || k >= n)
        return kRefusal;
    const T h(0.001);
    const T x = args[k];
    T f1;
    T f2;
    args[k] = Sum(h, x);
    StopReason why = Differenced(shifted, level + 1, args, n, f1, base);
    if (why == kGoes) {
        args[k] = Difference(x, h);
        why = Differenced(shifted, level + 1, args, n, f2, base);
    }
    args[k] = x;
    if (why != kGoes)
        return why;
    value = Quotient(Difference(f1, f2), Sum(h, h));
    return kGoes;
}

template <Op op, typename T>
bool BuiltinOf(const T* v, int n, T& out)
{
    if constexpr (IsBuiltin(op)) {
        if (n < kRows[op].fewest || n > kRows[op].most)
            return false;
        double scalars[kMostArguments];
        for (int k = 0; k < n; ++k)
            scalars[k] = Scalar(v[k]);
        (void)scalars;
        if (!Accepts<kRows[op].refusal>(scalars))
            return false;
        out = Math<op>::Value(v, n);
        return true;
    } else {
        return false;
    }
}

template <typename T>
bool Builtin(Op op, const T* v, int n, T& out)
{
    switch (op) {
#define VEXA_FORWARD_BUILTIN(Name, ...) \
    case k##Name: return BuiltinOf<k##Name>(v, n, out);
        VEXA_OPERATIONS(VEXA_FORWARD_BUILTIN)
#undef VEXA_FORWARD_BUILTIN
    default: return false;
    }
}

template <typename T>
StopReason Call(const Unit& u, ForwardSpace<T>& s, const Unit::Step& step, const std::uint32_t* o, T* r)
{
    const int n = static_cast<int>(step.count);
    std::vector<T> args(static_cast<std::size_t>(n));
    for (int k = 0; k < n; ++k)
        args[static_cast<std::size_t>(k)] = r[o[k]];
    if (step.op == kNumDiff) {
        const DiffChain& chain = u.program->chains()[step.c];
        auto base = [&](T* at, T& value) {
            return Builtin(static_cast<Op>(chain.base), at, n, value) ? kGoes : kRefusal;
        };
        return Differenced(chain.shifted, 0, args.data(), n, r[step.d], base);
    }
    const Callee& c = u.callees[step.c];
    if (!c.unit || !c.unit->program)
        return kTreeOnly;
    if (!c.unit->Runs(n))
        return kRefusal;
    auto base = [&](T* at, T& value) { return RunForward(*c.unit, s, at, n, value); };
    return Differenced(c.shifted, 0, args.data(), n, r[step.d], base);
}

template <Op op, typename T>
StopReason ForwardStep(const Unit& u, ForwardSpace<T>& s, const Unit::Step& step, const std::uint32_t* o, T* r)
{
    if constexpr (op == kAdd) {
        r[step.d] = Sum(r[o[1]], r[o[0]]);
    } else if constexpr (op == kSub) {
        r[step.d] = Difference(r[o[0]], r[o[1]]);
    } else if constexpr (op == kMul) {
        r[step.d] = Product(r[o[0]], r[o[1]]);
    } else if constexpr (op == kDiv) {
        const double divisor = Scalar(r[o[1]]);
        if (!(0 < divisor || 0 > divisor))
            return kZeroDivisor;
        r[step.d] = Quotient(r[o[0]], r[o[1]]);
    } else if constexpr (op == kPow) {
        r[step.d] = Pow(r[o[0]], r[o[1]]);
    } else if constexpr (op == kNumDiff || op == kCall) {
        return Call(u, s, step, o, r);
    } else if constexpr (!IsBuiltin(op)) {
        return kRefusal;
    } else {
        // A fixed count is a constant here: no more arguments are made
        // than the built-in takes.
        constexpr bool kFixed = kRows[op].fewest == kRows[op].most;
        T a[kFixed ? kRows[op].most : kMostArguments];
        const int n = static_cast<int>(step.count);
        if (n > (kFixed ? kRows[op].most : kMostArguments))
            return kRefusal;
        for (int k = 0; k < n; ++k)
            a[k] = r[o[k]];
        if (!BuiltinOf<op>(a, n, r[step.d]))
            return kRefusal;
    }
    return kGoes;
}

// The seed of parameter j for the partial by at[0], at[1], ...: each level
// of nesting carries the derivative by one of them.
template <typename T>
struct Seed;
template <>
struct Seed<double> {
    static double Of(double x, int, const int*) { return x; }
};
template <typename U>
struct Seed<Dual<U> > {
    static Dual<U> Of(double x, int j, const int* at)
    {
        return Dual<U>(Seed<U>::Of(x, j, at + 1), U(at[0] == j ? 1.0 : 0.0));
    }
};

inline double Top(double v) { return v; }
template <typename U>
double Top(const Dual<U>& v)
{
    return Top(v.d);
}

template <int order>
StopReason PartialOfOrder(const Form& form, ForwardSpace<typename Nested<order>::Type>& space, const double* x,
                          int count, const int* at, double& out)
{
    typedef typename Nested<order>::Type T;
    std::vector<T>& args = space.args;
    args.resize(static_cast<std::size_t>(count));
    for (int j = 0; j < count; ++j)
        args[static_cast<std::size_t>(j)] = Seed<T>::Of(x[j], j, at);
    T value;
    const StopReason why = RunForward(form.top(), space, args.data(), count, value);
    if (why == kGoes)
        out = Top(value);
    return why;
}

}  // namespace

template <typename T>
StopReason RunForward(const Unit& u, ForwardSpace<T>& s, const T* args, int count, T& value)
{
    (void)count;
    const Program& p = *u.program;
    const std::size_t id = static_cast<std::size_t>(u.id);
    if (s.regs.size() <= id)
        s.regs.resize(id + 1);
    std::vector<T>& regs = s.regs[id];
    if (regs.empty()) {
        // Constants sit in registers no instruction writes: filled once.
        const std::vector<double>& init = p.initialRegisters();
        regs.assign(init.begin(), init.end());
    }
    T* r = regs.data();
    for (const auto& load : p.paramLoads())
        r[load.second] = args[load.first];
    for (const Unit::Step& step : u.steps) {
        const std::uint32_t* o = u.operands.data() + step.first;
        StopReason why = kRefusal;
        switch (step.op) {
#define VEXA_FORWARD_CASE(Name, ...) \
    case k##Name: why = ForwardStep<k##Name>(u, s, step, o, r); break;
            VEXA_OPERATIONS(VEXA_FORWARD_CASE)
#undef VEXA_FORWARD_CASE
        default: break;
        }
        if (why != kGoes)
            return why;
    }
    value = r[p.resultRegister()];
    return kGoes;
}

StopReason ForwardPartial(const Form& form, ForwardScratch& scratch, const double* x, int count, const int* at,
                          int order, double& out)
{
    switch (order) {
    case 1: return PartialOfOrder<1>(form, scratch.order1, x, count, at, out);
    case 2: return PartialOfOrder<2>(form, scratch.order2, x, count, at, out);
    case 3: return PartialOfOrder<3>(form, scratch.order3, x, count, at, out);
    case 4: return PartialOfOrder<4>(form, scratch.order4, x, count, at, out);
    default: return kRefusal;
    }
}

}  // namespace vexa_compiled
