// The C interface to the function registry: registering expressions under
// names, and listing the names.
#include <algorithm>
#include <map>

#include "vexa/calc/arity.h"
#include "vexa/calc/callable_names.h"
#include "vexa/calc/expression.h"
#include "vexa/calc/function_factory.h"
#include "vexa/compiled/exact/exact_derivative.h"
#include "vexa/core/utf8.h"
#include "vexa/tree/tree_walk.h"
#include "vexa/vexa_c.h"
#include "vexa/c/vexa_c_internal.h"

using vexa_c::Checked;
using vexa_c::Fail;
using vexa_c::Status;

namespace {

// What vexa_register put into the registry, so that vexa_unregister can give
// back the reference the registry returns, and leaves alone names a C++
// host registered itself.
std::map<std::wstring, ICalculator*>& Registered()
{
    static std::map<std::wstring, ICalculator*> registered;
    return registered;
}

// Whether name is that of a registered expression (not a built-in).
bool IsRegistered(const std::wstring& name)
{
    VEXA_WString key(name.c_str());
    const vexa::CalcRef calc(FunctionFactory::getInstance()->CreateFunction(key));
    return dynamic_cast<Expression*>(calc.get()) != nullptr;
}

std::wstring NameOf(const char* name)
{
    if (!name || !*name)
        Fail(VEXA_E_ARGUMENT, "no function name");
    return vexa::FromUtf8(name);
}

// A text reaches a registered function only through a name the tokenizer
// reads as one name and the parser then asks the registry for: upper-case
// letters and digits, a letter first. Names of the language's own (the
// keywords, the named constants) would change how other texts read.
void CheckCallable(const char* utf8, const std::wstring& name)
{
    const std::string quoted = std::string("'") + utf8 + "'";
    auto refuse = [&](const std::string& why) {
        Fail(VEXA_E_NOT_REGISTERED, quoted + " cannot be registered: " + why);
    };
    if (name.size() > 255)
        refuse("a name holds at most 255 characters");
    for (std::size_t i = 0; i < name.size(); ++i) {
        const wchar_t c = name[i];
        if (c >= L'a' && c <= L'z')
            refuse("texts call functions by upper-case names only (write it in upper case)");
        const bool letter = c >= L'A' && c <= L'Z';
        const bool digit = c >= L'0' && c <= L'9';
        if (i == 0 && !letter)
            refuse("a function name begins with a letter A-Z");
        if (!letter && !digit)
            refuse("a function name holds only the letters A-Z and digits");
    }
    VEXA_WString key(name.c_str());
    if (key.isTime() || key.isCycleAngle())
        refuse("it is a keyword of the language, which texts use as a parameter");
    if (name == L"PI" || name == L"RTOD" || name == L"DTOR")
        refuse("it is a named constant, which texts read as a number");
    FunctionFactory* registry = FunctionFactory::getInstance();
    if (registry->IsFunction(key))
        refuse(IsRegistered(name) ? "a function of that name is registered already"
                                  : "it is the name of a built-in function");
}

}  // namespace

extern "C" {

int vexa_register(const char* name, const vexa_expr* e, vexa_error* err)
{
    return Status(err, [&] {
        const vexa_expr& x = Checked(e);
        const std::wstring wname = NameOf(name);
        CheckCallable(name, wname);
        VEXA_WString key(wname.c_str());
        vexa::CalcRef copy;
        {
            vexa_c::TreeUse use(x);
            Expression* tree = dynamic_cast<Expression*>(x.calc.get());
            // An exact derivative has no tree: its copy shares its compiled form.
            if (vexa::ExactDerivativeCalculator* exact = dynamic_cast<vexa::ExactDerivativeCalculator*>(tree))
                copy.reset(exact->Copy());
            else if (tree)
                copy.reset(tree->Copy());
        }
        if (!copy)
            Fail(VEXA_E_INTERNAL, "the expression has no tree to register");
        FunctionFactory* registry = FunctionFactory::getInstance();
        // The count and the slot first: once registered, nothing may fail.
        vexa::NoteArity(wname, copy.get(), static_cast<int>(x.names.size()));
        ICalculator** slot = nullptr;
        try {
            slot = &Registered()[wname];
        } catch (...) {
            vexa::ForgetArity(wname);
            throw;
        }
        bool registered = false;
        try {
            registered = registry->Register(key, copy.get());
        } catch (...) {
            Registered().erase(wname);
            vexa::ForgetArity(wname);
            throw;
        }
        if (!registered) {
            Registered().erase(wname);
            vexa::ForgetArity(wname);
            Fail(VEXA_E_NOT_REGISTERED, std::string(name) +
                                            " is not registered: the expression nests too deeply to be called "
                                            "within the library's stack limit");
        }
        *slot = copy.get();
    });
}

int vexa_unregister(const char* name, vexa_error* err)
{
    return Status(err, [&] {
        const std::wstring wname = NameOf(name);
        auto it = Registered().find(wname);
        if (it == Registered().end())
            Fail(VEXA_E_NOT_REGISTERED, std::string(name) + " was not registered with vexa_register");
        VEXA_WString key(wname.c_str());
        FunctionFactory* registry = FunctionFactory::getInstance();
        const vexa::CalcRef current(registry->CreateFunction(key));
        ICalculator* ours = it->second;
        Registered().erase(it);
        vexa::ForgetArity(wname);
        // The registry may have been destroyed and filled anew since.
        if (current.get() != ours)
            Fail(VEXA_E_NOT_REGISTERED, std::string(name) + " is no longer registered");
        registry->UnRegister(key);
        ours->Release();  // the registry's reference, which UnRegister hands back
    });
}

char* vexa_registered_calls(const vexa_expr* e, vexa_error* err)
{
    return vexa_c::TextCall(err, [&] {
        const vexa_expr& x = Checked(e);
        const std::wstring wrap = L"wrap:";
        std::vector<std::wstring> calls;
        vexa_c::TreeUse use(x);
        vexa::WalkTree(x.calc.get(), [&](const vexa::TreeNodeInfo& node) {
            std::wstring name;
            if (node.call == vexa::CallKind::kRegistered)
                name = node.function;
            // A numeric derivative wraps the function it differentiates.
            const bool wrapped = node.call == vexa::CallKind::kNumericDerivative &&
                                 node.function.compare(0, wrap.size(), wrap) == 0;
            if (wrapped && IsRegistered(node.function.substr(wrap.size())))
                name = node.function.substr(wrap.size());
            if (!name.empty() && std::find(calls.begin(), calls.end(), name) == calls.end())
                calls.push_back(name);
            return true;
        });
        return vexa_c::JoinLines(calls);
    });
}

char* vexa_functions(int which, vexa_error* err)
{
    return vexa_c::TextCall(err, [&] {
        if (which & ~(VEXA_BUILTIN | VEXA_REGISTERED))
            Fail(VEXA_E_ARGUMENT, "which is VEXA_BUILTIN, VEXA_REGISTERED or both");
        std::vector<std::wstring> names;
        if (which & VEXA_BUILTIN)
            names = vexa::CallableBuiltInNames();
        if (which & VEXA_REGISTERED) {
            // The registry lists its built-ins first, then what was registered.
            std::vector<std::wstring> builtIn, all;
            FunctionFactory* registry = FunctionFactory::getInstance();
            registry->GetAllFunctionName(builtIn);
            registry->GetAllFunctionBiFunctionName(all);
            for (std::size_t i = builtIn.size(); i < all.size(); ++i) {
                if (vexa::IsCallableName(all[i]))
                    names.push_back(all[i]);
            }
        }
        return vexa_c::JoinLines(names);
    });
}

}  // extern "C"
