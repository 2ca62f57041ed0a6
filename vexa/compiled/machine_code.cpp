#include "vexa/compiled/machine_code.h"

#include <cstdlib>
#include <exception>

#include "vexa/calc/callee.h"
#include "vexa/calc/icalculator.h"
#include "vexa/core/data_access.h"

namespace vexa_compiled {

using vexa_core::DataAccess;

int RunsBeforeMachineCode()
{
    static const int runs = [] {
        const char* text = std::getenv("VEXA_MACHINE_CODE_AFTER");
        return text && *text ? std::atoi(text) : 64;
    }();
    return runs;
}

int CallDifference(const DiffChain* chain, const double* args, int n, double* out)
{
    return CentralDifference(*chain, args, n, *out) ? 1 : 0;
}

// The arguments are read from their registers here, not copied by the code:
// a call may pass any number of them.
int CallCalculator(CallSpace* space, ICalculator* calc, const std::uint32_t* regs, const double* r, int n,
                   double* out)
{
    try {
        for (int k = 0; k < n; ++k)
            DataAccess::AssignScalar(space->args[static_cast<std::size_t>(k)], r[regs[k]]);
        VEXA_Data result;
        vexa_calc::CallFunction(calc, n, space->args.data(), result);
        if (!DataAccess::IsScalar(result))
            return 1;
        *out = DataAccess::Scalar(result);
        return 0;
    } catch (...) {
        space->pending = std::current_exception();
        return 2;
    }
}

bool ValueShapes::Fit(int count, std::size_t registers, const Exits& exits) const
{
    auto fits = [&](const Value& v, std::uint32_t room) {
        return v.rows >= 1 && v.cols >= 1 && v.rows <= 9 && v.cols <= 9 && v.rows * v.cols <= 9 &&
               (v.first == kUnread || std::size_t(v.first) + room <= registers);
    };
    if (params.size() != static_cast<std::size_t>(count) || !exits.shaped_result || result.first == kUnread)
        return false;
    for (const Value& v : params) {
        if (!fits(v, 9))
            return false;
    }
    return fits(result, static_cast<std::uint32_t>(result.rows * result.cols));
}

std::unique_ptr<MachineCode> MachineCode::FromBytes(const std::vector<std::uint8_t>& bytes,
                                                    const std::vector<std::uint8_t>& unwind)
{
    std::unique_ptr<MachineCode> code(new MachineCode());
    if (!code->m_memory.Load(bytes.data(), bytes.size(), unwind.empty() ? nullptr : unwind.data(), unwind.size()))
        return nullptr;
    code->m_entry = reinterpret_cast<FastEvaluate>(code->m_memory.data());
    return code;
}

int Rethrow(CallSpace* space)
{
    std::exception_ptr e = space->pending;
    space->pending = nullptr;
    std::rethrow_exception(e);
}

}  // namespace vexa_compiled
