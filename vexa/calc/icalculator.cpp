#include "vexa/calc/icalculator.h"

#include "vexa/core/data_access.h"
#include "vexa/core/inline_hints.h"
#include "vexa/core/platform.h"

ICalculator::ICalculator(VEXA_WString& name)
    : m_name(name), m_param_count(0), m_params(nullptr), m_ref_count(0), m_fast_path(nullptr)
{
}

ICalculator::ICalculator() : m_param_count(0), m_params(nullptr), m_ref_count(0), m_fast_path(nullptr) {}

ICalculator::~ICalculator()
{
    delete[] m_params;
    m_params = nullptr;
}

// Trees on different threads share calculators: every call of a registered
// function holds the one registered calculator, and copies share their
// function calculators. Copying, releasing and parsing such trees at once
// must not lose a count, so the count changes atomically.
bool ICalculator::AddRef()
{
    vexa_platform::AtomicIncrement(m_ref_count);
    return true;
}

// A count of 0 means one owner left: the call that finds 0 gives back the
// last reference and destroys; the count it leaves behind is never read.
bool ICalculator::Release()
{
    if (vexa_platform::AtomicDecrement(m_ref_count) == 0) {
        delete this;
        return true;
    }
    return false;
}

// Out of line, so that Evaluate itself is only the test and a jump.
VEXA_NOINLINE bool ICalculator::EvaluateLong(int count, VEXA_Data* params, VEXA_Data& result)
{
    if (!SetParams(count, params))
        return false;
    return Calculate(result);
}

namespace {

// The general copy: any kinds, any count. Kept out of line so that the
// scalar path in SetParams stays small enough to inline into Evaluate.
VEXA_NOINLINE void CopyParams(VEXA_Data*& held, int& heldCount, int count, VEXA_Data* params)
{
    // A held value that receives a null keeps its old shape, whereas a fresh
    // one reports 0 x 0; only values with elements may reuse the array.
    bool reusable = held && count == heldCount;
    for (int i = 0; reusable && i < count; ++i)
        reusable = params[i].getType() != DT_NULL;

    try {
        if (reusable) {
            // Assigning in place gives the same values without a heap
            // allocation per evaluation. When params is the held array
            // itself, each assignment is a self-assignment and changes nothing.
            for (int i = 0; i < count; ++i)
                held[i] = params[i];
            return;
        }
        // Fill the new array before freeing the old one, so params may alias
        // the held array.
        VEXA_Data* fresh = new VEXA_Data[count];
        try {
            for (int i = 0; i < count; ++i)
                fresh[i] = params[i];
        } catch (...) {
            delete[] fresh;
            throw;
        }
        delete[] held;
        held = fresh;
        heldCount = count;
    } catch (...) {
        // Out of memory: leave no half-copied parameters behind.
        delete[] held;
        held = nullptr;
        heldCount = 0;
        throw;
    }
}

}  // namespace

bool ICalculator::SetParams(int count, VEXA_Data* params)
{
    // A negative count, or a missing array for a positive one, cannot be
    // copied; refuse before touching what is held.
    if (count < 0 || (count > 0 && !params))
        return false;

    // Scalars into held scalars is what evaluation does millions of times:
    // writing the element in place gives the same held values as the
    // general copy. Where this stops early, the general copy assigns the
    // same values again.
    if (m_params && count == m_param_count) {
        using vexa_core::DataAccess;
        int i = 0;
        while (i < count && DataAccess::IsScalar(params[i]) && DataAccess::IsScalar(m_params[i])) {
            DataAccess::SetScalar(m_params[i], DataAccess::Scalar(params[i]));
            ++i;
        }
        if (i == count)
            return true;
    }
    CopyParams(m_params, m_param_count, count, params);
    return true;
}

VEXA_Data& ICalculator::getParam(int index)
{
    if (index < 0 || index >= m_param_count)
        throw 123;
    return m_params[index];
}

int ICalculator::getParamCount()
{
    return m_param_count;
}

VEXA_Data* ICalculator::getParams()
{
    return m_params;
}

VEXA_WString& ICalculator::getName()
{
    return m_name;
}
