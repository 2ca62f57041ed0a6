#include "vexa/compiled/exact/shaped_forward.h"

#include <vector>

#include "vexa/compiled/exact/dual.h"
#include "vexa/compiled/run/shaped_step.h"
#include "vexa/core/data_access.h"

namespace vexa_compiled {

namespace {

using vexa_core::DataAccess;
using vexa_exact::Dual;
using vexa_exact::Scalar;

template <typename T>
RunResult RunShaped(const ShapedProgram& p, T* r)
{
    const std::uint32_t* argSlots = p.argSlots().data();
    for (const ShapedInstr* ip = p.code().data();; ++ip) {
        Next next = Next::kUseTree;
        switch (ip->op) {
#define VEXA_SHAPED_FORWARD_CASE(Name, ...) \
    case k##Name: next = ScalarStep<k##Name>(ip, r, argSlots); break;
            VEXA_OPERATIONS(VEXA_SHAPED_FORWARD_CASE)
#undef VEXA_SHAPED_FORWARD_CASE
#define VEXA_SHAPED_FORWARD_OWN(Name) \
    case k##Name: next = Own<k##Name>(ip, r); break;
            VEXA_SHAPED_OPERATIONS(VEXA_SHAPED_FORWARD_OWN)
#undef VEXA_SHAPED_FORWARD_OWN
        default: break;
        }
        if (next == Next::kUseTree)
            return RunResult::kUseTree;
        if (next == Next::kDone)
            return RunResult::kDone;
    }
}

}  // namespace

bool ShapedPartials(const ShapedProgram& p, const VEXA_Data* params, int count, int index, VEXA_Data& result)
{
    if (index < 0 || index >= count || !DataAccess::Elements(params[index]))
        return false;
    const Shape f = p.resultShape();
    const int pr = DataAccess::Rows(params[index]);
    const int pc = DataAccess::Cols(params[index]);
    const int fn = f.rows * f.cols;
    const int pn = pr * pc;
    int rows;
    int cols;
    if (pn == 1) {
        rows = f.rows;
        cols = f.cols;
    } else if (fn == 1) {
        rows = pr;
        cols = pc;
    } else if (f.rows == 1 && pr == 1) {
        rows = fn;
        cols = pn;
    } else {
        return false;
    }
    VEXA_Data out(rows, cols);
    double* o = out.getValue();
    const std::vector<double>& init = p.initialSlots();
    std::vector<Dual<double> > slots;
    for (int j = 0; j < pn; ++j) {
        slots.assign(init.begin(), init.end());
        for (const ShapedProgram::Load& load : p.loads()) {
            const double* v = DataAccess::Elements(params[load.param]);
            for (std::uint32_t e = 0; e < load.count; ++e)
                slots[load.slot + e] = Dual<double>(v[e], load.param == index && int(e) == j ? 1.0 : 0.0);
        }
        if (RunShaped(p, slots.data()) != RunResult::kDone)
            return false;
        const Dual<double>* d = slots.data() + p.resultSlot();
        for (int e = 0; e < fn; ++e) {
            const double slope = d[e].d;
            if (pn == 1)
                o[e] = slope;
            else if (fn == 1)
                o[j] = slope;
            else
                o[e * pn + j] = slope;
        }
    }
    result = out;
    return true;
}

}  // namespace vexa_compiled
