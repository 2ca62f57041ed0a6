#include "vexa/calc/icalculator.h"

#include "vexa/core/platform.h"

ICalculator::ICalculator(VEXA_WString& name)
    : m_name(name), m_param_count(0), m_params(nullptr), m_ref_count(0)
{
}

ICalculator::ICalculator() : m_param_count(0), m_params(nullptr), m_ref_count(0) {}

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

bool ICalculator::Evaluate(int count, VEXA_Data* params, VEXA_Data& result)
{
    if (!SetParams(count, params))
        return false;
    return Calculate(result);
}

bool ICalculator::SetParams(int count, VEXA_Data* params)
{
    // A negative count, or a missing array for a positive one, cannot be
    // copied; refuse before touching what is held.
    if (count < 0 || (count > 0 && !params))
        return false;

    // A held value that receives a null keeps its old shape, whereas a fresh
    // one reports 0 x 0; only values with elements may reuse the array.
    bool reusable = m_params && count == m_param_count;
    for (int i = 0; reusable && i < count; ++i)
        reusable = params[i].getType() != DT_NULL;

    try {
        if (reusable) {
            // Evaluation runs this on every call, mostly with the same count:
            // assigning in place gives the same values without a heap
            // allocation per evaluation. When params is the held array
            // itself, each assignment is a self-assignment and changes nothing.
            for (int i = 0; i < count; ++i)
                m_params[i] = params[i];
            return true;
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
        delete[] m_params;
        m_params = fresh;
        m_param_count = count;
    } catch (...) {
        // Out of memory: leave no half-copied parameters behind.
        delete[] m_params;
        m_params = nullptr;
        m_param_count = 0;
        throw;
    }
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
