#include "vexa/calc/operation_math.h"
#include "vexa/compiled/program/shaped_program.h"
#include "vexa/compiled/run/scalar_step.h"
#include "vexa/compiled/run/shaped_step.h"
#include "vexa/core/inline_hints.h"

namespace vexa_compiled {


#if defined(__GNUC__)
// Threaded dispatch, as the scalar interpreter's: the table's rows, then the
// instructions of its own, each ending in its own indirect jump.
RunResult ShapedProgram::Run(double* r) const
{
    static void* const kJump[kShapedOpEnd] = {
#define VEXA_SHAPED_JUMP(Name, ...) &&op_##Name,
        VEXA_OPERATIONS(VEXA_SHAPED_JUMP) VEXA_SHAPED_OPERATIONS(VEXA_SHAPED_JUMP)
#undef VEXA_SHAPED_JUMP
    };
    const std::uint32_t* argSlots = m_arg_slots.data();
    const ShapedInstr* ip = m_code.data();
    goto* kJump[ip->op];

#define VEXA_SHAPED_LABEL(Name, Call)              \
    op_##Name:                                     \
    if (const Next next = Call; next != Next::kGo) \
        return Ending(next);                       \
    ++ip;                                          \
    goto* kJump[ip->op];
#define VEXA_SHAPED_TABLE_LABEL(Name, ...) VEXA_SHAPED_LABEL(Name, (ScalarStep<k##Name>(ip, r, argSlots)))
#define VEXA_SHAPED_OWN_LABEL(Name) VEXA_SHAPED_LABEL(Name, (Own<k##Name>(ip, r)))
    VEXA_OPERATIONS(VEXA_SHAPED_TABLE_LABEL)
    VEXA_SHAPED_OPERATIONS(VEXA_SHAPED_OWN_LABEL)
#undef VEXA_SHAPED_OWN_LABEL
#undef VEXA_SHAPED_TABLE_LABEL
#undef VEXA_SHAPED_LABEL
}
#else
RunResult ShapedProgram::Run(double* r) const
{
    const std::uint32_t* argSlots = m_arg_slots.data();
    for (const ShapedInstr* ip = m_code.data();; ++ip) {
        Next next = Next::kUseTree;
        switch (ip->op) {
#define VEXA_SHAPED_CASE(Name, ...) \
    case k##Name: next = ScalarStep<k##Name>(ip, r, argSlots); break;
            VEXA_OPERATIONS(VEXA_SHAPED_CASE)
#undef VEXA_SHAPED_CASE
#define VEXA_SHAPED_OWN_CASE(Name) \
    case k##Name: next = Own<k##Name>(ip, r); break;
            VEXA_SHAPED_OPERATIONS(VEXA_SHAPED_OWN_CASE)
#undef VEXA_SHAPED_OWN_CASE
        }
        if (next != Next::kGo)
            return Ending(next);
    }
}
#endif

}  // namespace vexa_compiled
