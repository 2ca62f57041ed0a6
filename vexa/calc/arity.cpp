#include "vexa/calc/arity.h"

#include <map>
#include <mutex>

#include "vexa/calc/calc_ref.h"
#include "vexa/calc/call_forms.h"
#include "vexa/calc/expression.h"
#include "vexa/calc/function_factory.h"
#include "vexa/core/utf8.h"

namespace vexa {

namespace {

struct Noted {
    const ICalculator* function;
    int count;
};

// Registration and look-up may come from parses on several threads.
std::mutex& Lock()
{
    static std::mutex lock;
    return lock;
}

std::map<std::wstring, Noted>& Counts()
{
    static std::map<std::wstring, Noted> counts;
    return counts;
}

std::string Arguments(int count)
{
    return std::to_string(count) + (count == 1 ? " argument" : " arguments");
}

}  // namespace

void NoteArity(const std::wstring& name, const ICalculator* function, int count)
{
    std::lock_guard<std::mutex> hold(Lock());
    Counts()[name] = Noted{function, count};
}

void ForgetArity(const std::wstring& name)
{
    std::lock_guard<std::mutex> hold(Lock());
    Counts().erase(name);
}

bool AcceptedCounts(const std::wstring& name, int& least, int& most, bool& builtIn)
{
    builtIn = false;
    VEXA_WString key(name.c_str());
    FunctionFactory* registry = FunctionFactory::getInstance();
    if (!registry->IsFunction(key))
        return false;
    const CalcRef function(registry->CreateFunction(key));
    const bool registered = dynamic_cast<const Expression*>(function.get()) != nullptr;
    if (const CallForm* form = registered ? nullptr : FindCallForm(name)) {
        if (form->min_args < 0)
            return false;
        builtIn = true;
        least = form->min_args;
        most = form->max_args;
        return true;
    }
    std::lock_guard<std::mutex> hold(Lock());
    const auto it = Counts().find(name);
    if (it == Counts().end() || it->second.function != function.get())
        return false;
    least = most = it->second.count;
    return true;
}

std::string TakesArguments(const std::wstring& name)
{
    int least = 0;
    int most = 0;
    bool builtIn = false;
    if (!AcceptedCounts(name, least, most, builtIn))
        return std::string();
    const std::string n = ToUtf8(name);
    if (least > most)
        return n + " accepts no call of numbers";
    if (least == most)
        return n + " takes " + Arguments(least);
    return n + " takes " + std::to_string(least) + " to " + Arguments(most);
}

}  // namespace vexa
