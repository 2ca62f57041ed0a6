#include "vexa/compiled/machine_code.h"

#include <vector>

#include "vexa/compiled/x86_64/call_convention.h"
#include "vexa/compiled/x86_64/callees.h"
#include "vexa/compiled/x86_64/frame.h"
#include "vexa/compiled/x86_64/host_data.h"
#include "vexa/compiled/x86_64/value_lowering.h"
#include "vexa/compiled/x86_64/x64_emitter.h"
#include "vexa/compiled/x86_64/xmm_allocator.h"

namespace vexa_compiled {

#if defined(__x86_64__) && (defined(__unix__) || defined(__APPLE__) || defined(_WIN32))

namespace {

using namespace x64;

// Beyond these the code would be large for little gain; the interpreter
// runs such programs.
constexpr int kMaxCount = 256;
constexpr std::size_t kMaxInstructions = 20000;
// Register homes are addressed with 32-bit displacements.
constexpr std::size_t kMaxRegisters = std::size_t(1) << 24;
// The entry's arguments: the calculator, the count, the parameters, the
// result.
constexpr int kEntryArgs = 4;

// The whole evaluation: the count check, the frame, the parameter copy, the
// instructions, the result, and the ways out to C++. False where the
// program is not taken. shapes: those of the values of a shaped program's
// evaluation, null for scalars.
bool Write(Emitter& em, const Program& program, int count, double* registers, CallSpace* space,
           const Layout& layout, const Exits& exits, const ValueShapes* shapes, std::vector<std::uint8_t>& unwind)
{
    const std::vector<Instr>& code = program.code();
    const std::size_t registerCount = program.initialRegisters().size();
    if (count < 0 || count > kMaxCount || code.size() > kMaxInstructions || registerCount > kMaxRegisters)
        return false;
    if (shapes && !shapes->Fit(count, registerCount, exits))
        return false;
    Frame frame(em, kHost, kEntryArgs);
    bool calls = false;
    for (const Instr& in : code) {
        // Values of shapes have no call space for other calculators.
        if (in.op == kStop || (shapes && (in.op == kCall || in.op == kNumDiff)))
            return false;
        calls = calls || ValueLowering::Calls(in);
    }

    // Registers free where nothing is called (kept ones where the convention
    // leaves too few); those that must outlive a call are kept ones instead.
    // The scratch register serves the parameter copy only, before any call.
    int base = frame.TakeAny();
    int held = frame.TakeAny();
    const int scratch = frame.TakeAny();
    int shape = frame.TakeAny();
    int self = frame.EntryArg(0);
    int params = frame.EntryArg(2);
    int result = frame.EntryArg(3);
    if (calls) {
        base = frame.TakeKept();
        self = frame.TakeKept();
        params = frame.TakeKept();
        result = frame.TakeKept();
        held = frame.TakeKept();
        shape = frame.TakeKept();
        frame.ReserveScratch();
    }
    if (base < 0 || held < 0 || scratch < 0 || shape < 0 || self < 0 || params < 0 || result < 0)
        return false;

    XmmAllocator xmms(em, 1, 15, XmmAllocator::kFurthestUse);
    frame.UseXmms(15);
    xmms.Reset(registerCount, base, true);
    std::vector<std::uint32_t> ops;
    for (std::size_t i = 0; i < code.size(); ++i) {
        if (!ValueLowering::Operands(program, code[i], ops))
            return false;
        for (std::uint32_t reg : ops)
            xmms.AddUse(reg, i);
    }
    if (shapes) {
        const ValueShapes::Value& r = shapes->result;
        for (std::uint32_t e = 0; e < static_cast<std::uint32_t>(r.rows * r.cols); ++e)
            xmms.AddUse(r.first + e, code.size() - 1);
    } else {
        xmms.AddUse(program.resultRegister(), code.size() - 1);
    }
    xmms.CloseUses();
    // Scalar parameters are written by the copy, not by the program's start
    // image.
    for (const auto& load : program.paramLoads())
        xmms.SetHomeCurrent(load.second, false);

    const int general = em.NewLabel();  // the long way
    const int stop = em.NewLabel();     // hand over to the tree
    const int thrown = em.NewLabel();   // rethrow outside
    const int slow = em.NewLabel();     // a result that is not a scalar's storage
    const int early = em.NewLabel();
    ValueLowering lowering(em, frame, xmms, program, space, base, stop, thrown);
    HostData host(em, layout, {self, params, result, held, shape, scratch, base});
    // Shaped parameters' elements are read where the copy reads them.
    for (std::size_t i = 0; shapes && i < shapes->params.size(); ++i) {
        const ValueShapes::Value& v = shapes->params[i];
        for (int e = 0; v.first != ValueShapes::kUnread && e < v.rows * v.cols; ++e)
            xmms.MoveHome(v.first + static_cast<std::uint32_t>(e), host.HostElement(static_cast<int>(i), e));
    }
    // Takes the frame down and puts the evaluation's own arguments back where
    // a jump to C++ expects them.
    // Code that calls nothing keeps them where they came, and may still have
    // a frame (kept registers or xmm registers to give back).
    auto leave = [&] {
        if (calls) {
            em.MovReg(frame.EntryArg(0), self);
            em.MovImm32(frame.EntryArg(1), static_cast<std::uint32_t>(count));
            em.MovReg(frame.EntryArg(2), params);
            em.MovReg(frame.EntryArg(3), result);
        }
        frame.Epilogue();
    };
    auto exit = [&](int label, FastEvaluate to) {
        em.Bind(label);
        leave();
        em.MovImm64(rax, Address(to));
        em.Jmp(rax);
    };

    // The count is checked before the frame exists: both the caller's and
    // the held count must be the one the copy below was made for.
    host.CheckCount(frame.EntryArg(0), frame.EntryArg(1), count, early);
    frame.Prologue();
    if (calls) {
        em.MovReg(self, frame.EntryArg(0));
        em.MovReg(params, frame.EntryArg(2));
        em.MovReg(result, frame.EntryArg(3));
    }
    em.MovImm64(base, reinterpret_cast<std::uint64_t>(registers));
    host.LoadPointers();
    if (shapes)
        host.CopyShapedParameters(*shapes, general);
    else
        host.CopyParameters(program, count, xmms, general);
    for (std::size_t i = 0; i + 1 < code.size(); ++i) {
        if (!lowering.Lower(code[i], i))
            return false;
    }
    // The slow result's C++ takes the host's result and the value.
    ArgumentCursor assignArgs(frame.convention());
    const int resultArg = assignArgs.NextInt();
    const int valueArg = assignArgs.NextXmm();
    if (resultArg < 0 || valueArg < 0)
        return false;
    const int slowShaped = em.NewLabel();
    if (shapes)
        host.StoreShapedResult(*shapes, xmms, slowShaped);
    else
        host.StoreResult(program.resultRegister(), xmms, slow, valueArg);
    leave();
    em.Ret();
    if (shapes)
        exit(slowShaped, exits.shaped_result);

    exit(general, exits.general);
    exit(stop, exits.tree);
    em.Bind(slow);
    leave();
    em.MovReg(resultArg, frame.EntryArg(3));
    em.MovImm64(rax, Address(exits.assign));
    em.Jmp(rax);
    if (calls) {
        em.Bind(thrown);
        leave();
        ArgumentCursor rethrowArgs(frame.convention());
        em.MovImm64(rethrowArgs.NextInt(), reinterpret_cast<std::uint64_t>(space));
        em.MovImm64(rax, Address(Rethrow));
        em.Jmp(rax);
    }
    em.Bind(early);
    em.MovImm64(rax, Address(exits.general));
    em.Jmp(rax);
    return frame.UnwindInfo(unwind);
}

}  // namespace

std::unique_ptr<MachineCode> MachineCode::Make(const Program& program, int count, double* registers,
                                               CallSpace* space, const Layout& layout, const Exits& exits)
{
    Emitter em;
    std::vector<std::uint8_t> unwind;
    if (!Write(em, program, count, registers, space, layout, exits, nullptr, unwind))
        return nullptr;
    return FromBytes(em.Finish(), unwind);
}

std::unique_ptr<MachineCode> MachineCode::MakeShaped(const Program& program, const ValueShapes& shapes,
                                                     double* registers, const Layout& layout, const Exits& exits)
{
    Emitter em;
    std::vector<std::uint8_t> unwind;
    const int count = static_cast<int>(shapes.params.size());
    if (!Write(em, program, count, registers, nullptr, layout, exits, &shapes, unwind))
        return nullptr;
    return FromBytes(em.Finish(), unwind);
}

#elif !(defined(__aarch64__) && defined(__linux__))

// (Linux AArch64 has its own, in vexa/compiled/aarch64/.)
std::unique_ptr<MachineCode> MachineCode::Make(const Program&, int, double*, CallSpace*, const Layout&, const Exits&)
{
    return nullptr;
}

std::unique_ptr<MachineCode> MachineCode::MakeShaped(const Program&, const ValueShapes&, double*, const Layout&,
                                                     const Exits&)
{
    return nullptr;
}

#endif

}  // namespace vexa_compiled
