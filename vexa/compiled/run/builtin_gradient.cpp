#include "vexa/compiled/run/builtin_gradient.h"

#include "vexa/compiled/form.h"

namespace vexa_compiled {

namespace {

template <Op op>
int Kernel(const double* v, int n, double* value, double* partials)
{
    return GradientOf<op>(v, n, *value, partials) ? kGoes : kRefusal;
}

const GradientKernel kKernels[kOpCount] = {
#define VEXA_KERNEL_ENTRY(Name, ...) &Kernel<k##Name>,
    VEXA_OPERATIONS(VEXA_KERNEL_ENTRY)
#undef VEXA_KERNEL_ENTRY
};

}  // namespace

bool BuiltinGradient(Op op, const double* v, int n, double& value, double* g)
{
    return op < kOpCount && kKernels[op](v, n, &value, g) == kGoes;
}

GradientKernel BuiltinGradientKernel(Op op)
{
    return op < kOpCount ? kKernels[op] : nullptr;
}

}  // namespace vexa_compiled
