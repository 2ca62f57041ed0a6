#include "vexa/compiled/exact/exact_derivative.h"

#include <algorithm>
#include <utility>

#include "vexa/calc/expression_access.h"
#include "vexa/compiled/compiled_expression.h"
#include "vexa/compiled/exact/forward_run.h"
#include "vexa/compiled/exact/shaped_forward.h"
#include "vexa/compiled/form.h"
#include "vexa/compiled/program/shaped_program.h"
#include "vexa/core/data_access.h"

namespace vexa {

struct ExactDerivativeMaker {
    static ExactDerivativeCalculator* Make(std::shared_ptr<const ExactDerivativeCalculator::Shared> shared, int index)
    {
        return new ExactDerivativeCalculator(std::move(shared), std::vector<int>(1, index));
    }
};

struct ExactDerivativeCalculator::Shared {
    std::unique_ptr<CompiledExpression> form;
};

struct ExactDerivativeCalculator::ShapedCache {
    std::vector<vexa_compiled::Shape> signature;
    std::unique_ptr<vexa_compiled::ShapedProgram> program;  // null: these shapes have none
    bool made = false;
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
    return ExactDerivativeMaker::Make(std::move(shared), index);
}

ExactDerivativeCalculator::ExactDerivativeCalculator(std::shared_ptr<const Shared> shared, std::vector<int> at)
    : m_shared(std::move(shared)), m_at(std::move(at))
{
    vexa_calc::ExpressionAccess::SetFastPath(*this, FastEvaluate);
}

bool ExactDerivativeCalculator::FastEvaluate(ICalculator& self, int count, VEXA_Data* params, VEXA_Data& result)
{
    using vexa_core::DataAccess;
    ExactDerivativeCalculator& e = static_cast<ExactDerivativeCalculator&>(self);
    // m_point has the form's count once the long way has evaluated.
    if (count == e.m_param_count && static_cast<std::size_t>(count) == e.m_point.size()) {
        VEXA_Data* held = e.m_params;
        double* point = e.m_point.data();
        int k = 0;
        // The held values are set as the long way sets them; a value that is
        // no number sends the rest the long way, which sets them all again.
        for (; k < count && DataAccess::IsScalar(params[k]) && DataAccess::IsScalar(held[k]); ++k) {
            point[k] = DataAccess::Scalar(params[k]);
            DataAccess::SetScalar(held[k], point[k]);
        }
        if (k == count)
            return e.CalculateAtPoint(result);
    }
    return vexa_calc::ExpressionAccess::EvaluateLong(e, count, params, result);
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
    if (!m_workspace)
        m_workspace.reset(new Workspace(form));
    m_point.resize(static_cast<std::size_t>(count));
    for (int k = 0; k < count; ++k) {
        if (!DataAccess::IsScalar(m_params[k]))
            return CalculateShaped(result);
        m_point[static_cast<std::size_t>(k)] = DataAccess::Scalar(m_params[k]);
    }
    return CalculateAtPoint(result);
}

bool ExactDerivativeCalculator::CalculateAtPoint(VEXA_Data& result)
{
    const CompiledExpression& form = *m_shared->form;
    double partial;
    const Outcome o = form.PartialAt(m_point.data(), m_at.data(), order(), &partial, *m_workspace);
    if (o.failure == Failure::kThrown)
        throw o.code;
    // Numbers that make a vector: the shaped program follows them.
    if (o.failure == Failure::kNotScalar || o.failure == Failure::kNoGradient)
        return CalculateShaped(result);
    if (!o.ok())
        return false;
    vexa_core::DataAccess::AssignScalar(result, partial);
    return true;
}

bool ExactDerivativeCalculator::CalculateShaped(VEXA_Data& result)
{
    if (order() != 1)
        return false;
    const int count = m_shared->form->paramCount();
    if (!m_shaped)
        m_shaped.reset(new ShapedCache());
    std::vector<vexa_compiled::Shape> signature;
    for (int k = 0; k < count; ++k)
        signature.push_back(vexa_compiled::SignatureShape(m_params[k]));
    if (!m_shaped->made || signature != m_shaped->signature) {
        // The private copy's tree, read only for the shapes its values take.
        Expression* tree = m_shared->form->m_form->snapshot;
        m_shaped->made = false;
        m_shaped->signature = signature;
        m_shaped->program =
            vexa_compiled::ShapedProgram::Compile(vexa_calc::ExpressionAccess::Root(*tree), tree, m_params, count);
        m_shaped->made = true;
    }
    return m_shaped->program && vexa_compiled::ShapedPartials(*m_shaped->program, m_params, count, m_at[0], result);
}

}  // namespace vexa
