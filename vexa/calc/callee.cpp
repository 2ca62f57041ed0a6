#include "vexa/calc/callee.h"

#include <atomic>
#include <cstddef>
#include <typeinfo>

#include "vexa/calc/buidin_function.h"
#include "vexa/calc/calculator_access.h"
#include "vexa/calc/call_errors.h"
#include "vexa/calc/complex_step_calculator.h"
#include "vexa/calc/expression.h"
#include "vexa/calc/expression_access.h"
#include "vexa/core/platform.h"

namespace vexa_calc {

namespace {

// Frames of sanitizer and unoptimised builds are larger (about 400 bytes a
// unit under AddressSanitizer); the stack test at a registered call scales
// with them so that it still fires before the stack runs out, not after.
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VEXA_LARGE_FRAMES 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(__OPTIMIZE__)
#define VEXA_LARGE_FRAMES 1
#endif

#if defined(VEXA_LARGE_FRAMES)
constexpr std::size_t kStackPerUnit = 1024;
#else
constexpr std::size_t kStackPerUnit = 256;
#endif
// What a call needs beyond its tree: the built-in implementations at the
// bottom, the value arithmetic, the compiled evaluation's own frames.
constexpr std::size_t kStackReserve = std::size_t(64) << 10;

// Holds the in-use mark of an expression for the length of one call.
class InUse {
public:
    explicit InUse(std::atomic<bool>& mark) : m_mark(mark)
    {
        // Acquire pairs with the release below: the values the previous
        // call left in the held parameters are complete before this call
        // overwrites them.
        if (m_mark.exchange(true, std::memory_order_acquire))
            throw vexa::kFunctionInUse;
    }
    ~InUse() { m_mark.store(false, std::memory_order_release); }
    InUse(const InUse&) = delete;
    InUse& operator=(const InUse&) = delete;

private:
    std::atomic<bool>& m_mark;
};

bool CallExpression(Expression& e, int count, VEXA_Data* args, VEXA_Data& result)
{
    // The cost parse admitted can be out of date: a host may give a
    // registered expression a deeper tree with SetRoot after its callers
    // were parsed, or evaluate on a thread smaller than the guarantee's. The
    // expression's own tree is always measured afresh, and whatever it
    // calls is tested again on the way in, so the stack left decides. A
    // tree past the limit is measured only as far as the limit: refused.
    const int cost = ExpressionAccess::Cost(e);
    const std::size_t need = std::size_t(cost) * kStackPerUnit + kStackReserve;
    if (cost > kMaxCost || vexa_platform::StackLeft() < need)
        throw vexa::kCallsTooDeep;
    InUse mark(ExpressionAccess::Evaluating(e));
    return e.Evaluate(count, args, result);
}

}  // namespace

int CalleeCost(ICalculator* function)
{
    // Built-ins are nearly every call and add nothing, registered functions
    // are expressions: one type comparison settles either, where a cast
    // would compare type names; only other classes are cast. Wrappers of
    // wrappers arise from repeated derivatives and are followed in a loop,
    // as a chain may be arbitrarily long.
    long long cost = 0;
    while (function && cost <= kMaxCost) {
        const std::type_info& type = typeid(*function);
        if (type == typeid(BuidInFunction))
            break;
        Expression* e = type == typeid(Expression) ? static_cast<Expression*>(function) : nullptr;
        if (!e) {
            if (ComplexStepCalculator* step = dynamic_cast<ComplexStepCalculator*>(function)) {
                cost += kStepCost;
                function = CalculatorAccess::Inner(*step);
                continue;
            }
            e = dynamic_cast<Expression*>(function);
        }
        if (e)
            cost += kEntryCost + ExpressionAccess::Cost(*e);
        break;
    }
    return cost > kMaxCost ? kMaxCost + 1 : static_cast<int>(cost);
}

bool CallFunction(ICalculator* function, int count, VEXA_Data* args, VEXA_Data& result)
{
    // Only a registered expression is one calculator shared by every call;
    // a built-in calculator belongs to its node and the node's copies.
    const std::type_info& type = typeid(*function);
    if (type == typeid(BuidInFunction))
        return function->Evaluate(count, args, result);
    if (type == typeid(Expression))
        return CallExpression(*static_cast<Expression*>(function), count, args, result);
    if (Expression* e = dynamic_cast<Expression*>(function))
        return CallExpression(*e, count, args, result);
    // A central-difference wrapper or a host's own calculator: how deep it
    // goes is not known here, but a chain of them passes here at every link.
    if (vexa_platform::StackLeft() < kStackReserve)
        throw vexa::kCallsTooDeep;
    return function->Evaluate(count, args, result);
}

}  // namespace vexa_calc
