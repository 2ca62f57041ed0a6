#include "vexa/compiled/exact/exact_derivative.h"

#include <algorithm>
#include <utility>

#include "vexa/compiled/compiled_expression.h"
#include "vexa/compiled/exact/forward_run.h"
#include "vexa/core/data_access.h"

namespace vexa {

struct ExactDerivativeCalculator::Shared {
    std::unique_ptr<CompiledExpression> form;
};

namespace {

bool Refuse(std::string* why, const std::string& reason)
{
    if (why)
        *why = reason;
    return false;
}

bool InRange(int index, int count, std::string* why)
{
    if (index >= 0 && index < count)
        return true;
    return Refuse(why, "no parameter of index " + std::to_string(index) + " (the expression has " +
                           std::to_string(count) + ")");
}

}  // namespace

ICalculator* ExactDerivative(ICalculator* calc, int index, std::string* why)
{
    if (!calc) {
        Refuse(why, "no calculator");
        return nullptr;
    }
    if (ExactDerivativeCalculator* exact = dynamic_cast<ExactDerivativeCalculator*>(calc)) {
        ICalculator* d = exact->getDerivativeCalculator(index);
        if (!d)
            Refuse(why, "no parameter of index " + std::to_string(index) + ", or past order " +
                            std::to_string(vexa_compiled::kMostOrder));
        return d;
    }
    std::unique_ptr<CompiledExpression> form = CompiledExpression::Make(calc, -1, why);
    if (!form)
        return nullptr;
    // Parameters the host passes but the text never reads have partial 0:
    // they are as much parameters of calc as the ones it reads.
    const int count = std::max(form->paramCount(), calc->getParamCount());
    if (!InRange(index, count, why))
        return nullptr;
    if (count > form->paramCount()) {
        form = CompiledExpression::Make(calc, count, why);
        if (!form)
            return nullptr;
    }
    std::shared_ptr<ExactDerivativeCalculator::Shared> shared(new ExactDerivativeCalculator::Shared());
    shared->form = std::move(form);
    return new ExactDerivativeCalculator(std::move(shared), std::vector<int>(1, index));
}

ExactDerivativeCalculator::ExactDerivativeCalculator(std::shared_ptr<const Shared> shared, std::vector<int> at)
    : m_shared(std::move(shared)), m_at(std::move(at))
{
}

ExactDerivativeCalculator::~ExactDerivativeCalculator() {}

ICalculator* ExactDerivativeCalculator::getDerivativeCalculator(int paramIndex)
{
    if (paramIndex < 0 || paramIndex >= m_shared->form->paramCount() || order() >= vexa_compiled::kMostOrder)
        return nullptr;
    std::vector<int> at = m_at;
    at.push_back(paramIndex);
    return new ExactDerivativeCalculator(m_shared, std::move(at));
}

ExactDerivativeCalculator* ExactDerivativeCalculator::Copy()
{
    return new ExactDerivativeCalculator(m_shared, m_at);
}

bool ExactDerivativeCalculator::Calculate(VEXA_Data& result)
{
    using vexa_core::DataAccess;
    const CompiledExpression& form = *m_shared->form;
    const int count = form.paramCount();
    // A parameter the host did not pass reads as a null value, as in the tree.
    if (m_param_count < count)
        return false;
    m_point.resize(static_cast<std::size_t>(count));
    for (int k = 0; k < count; ++k) {
        if (!DataAccess::IsScalar(m_params[k]))
            return false;
        m_point[static_cast<std::size_t>(k)] = DataAccess::Scalar(m_params[k]);
    }
    if (!m_workspace)
        m_workspace.reset(new Workspace(form));
    double partial;
    const Outcome o = form.PartialAt(m_point.data(), m_at.data(), order(), &partial, *m_workspace);
    if (o.failure == Failure::kThrown)
        throw o.code;
    if (!o.ok())
        return false;
    result = VEXA_Data(partial);
    return true;
}

}  // namespace vexa
