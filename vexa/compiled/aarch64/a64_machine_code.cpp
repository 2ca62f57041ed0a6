// MachineCode on Linux AArch64: the whole one-step evaluation as A64 code,
// as the x86-64 back end makes it (the count check, the parameter copy into
// the held scalars, the instructions, the result in place, the ways out to
// C++), under the procedure call standard: arguments in x0..x3, d0..d7 and
// x0..x7 for calls, x19..x28 and the low halves of d8..d15 kept by a callee
// (this code keeps x19..x24 and uses no d8..d15), sp a multiple of 16.
// Calls of other calculators and central differences go through the same
// C++ the x86-64 code calls.
#include "vexa/compiled/machine_code.h"

#if defined(__aarch64__) && defined(__linux__)

#include <cstring>
#include <vector>

#include "vexa/compiled/aarch64/a64_emitter.h"
#include "vexa/compiled/aarch64/a64_frame.h"
#include "vexa/compiled/aarch64/a64_value_lowering.h"
#include "vexa/core/bits.h"

namespace vexa_compiled {

namespace {

using namespace a64;

// Beyond these the code would be large for little gain; the interpreter
// runs such programs.
constexpr int kMaxCount = 256;
constexpr std::size_t kMaxInstructions = 20000;
constexpr std::size_t kMaxRegisters = std::size_t(1) << 24;
// Bytes of code an instruction or a parameter may take at most (a series'
// 34 arguments each loaded and stored through far offsets), and the frame
// and exits around them.
constexpr std::size_t kBytesPerStep = 34 * 2 * 5 * 4 + 64;
constexpr std::size_t kBytesAround = 4096;

// Rows 1 and columns 1 read as one 8-byte word: the shape of a scalar.
constexpr std::uint64_t kScalarShape = 0x0000000100000001ULL;

// The kept registers: the calculator, the host's parameters and result, the
// held parameters, a scalar's shape (the homes' base is x19).
constexpr XReg kSelf = x20;
constexpr XReg kParams = x21;
constexpr XReg kResult = x22;
constexpr XReg kHeld = x23;
constexpr XReg kShape = x24;

using vexa_core::Bits;

template <class F>
std::uint64_t Address(F* f)
{
    return reinterpret_cast<std::uint64_t>(f);
}

// Whether the program, its registers and the host's layout are all this
// back end takes.
bool Takes(const Program& program, int count, const Layout& layout)
{
    const std::vector<Instr>& code = program.code();
    const std::size_t registers = program.initialRegisters().size();
    if (count < 0 || count > kMaxCount || code.empty() || code.size() > kMaxInstructions ||
        registers > kMaxRegisters || program.resultRegister() >= registers || code.back().op != kReturn)
        return false;
    // The held count is read as the low half of an 8-byte word, whose upper
    // half lies inside the calculator: its parameter array follows.
    if (layout.param_count < 0 || layout.params < layout.param_count + 4 || layout.value_size <= 0)
        return false;
    for (const Instr& in : code) {
        if (!ValueLowering::Takes(program, in))
            return false;
    }
    for (const auto& load : program.paramLoads()) {
        if (load.first < 0 || load.first >= count || load.second >= registers)
            return false;
    }
    return true;
}

// For values of shapes: to general unless every parameter and held value
// has its shape and its elements in its own buffer; then the elements into
// the held value and into their homes. Nothing is copied before every check
// has passed. x11 and x12 walk the parameters and the held values.
void CopyShapedParameters(Emitter& em, const ValueShapes& shapes, const Layout& layout, int general)
{
    for (int pass = 0; pass < 2; ++pass) {
        em.MovReg(x11, kParams);
        em.MovReg(x12, kHeld);
        for (std::size_t i = 0; i < shapes.params.size(); ++i) {
            const ValueShapes::Value& v = shapes.params[i];
            if (i > 0) {
                em.AddImm(x11, x11, static_cast<std::uint32_t>(layout.value_size));
                em.AddImm(x12, x12, static_cast<std::uint32_t>(layout.value_size));
            }
            if (pass == 0) {
                em.MovImm(kShape, v.ShapeWord());
                for (XReg from : {x11, x12}) {
                    em.LdrX(x9, from, layout.value_data);
                    em.AddImm(x10, from, static_cast<std::uint32_t>(layout.value_space));
                    em.CmpReg(x9, x10);
                    em.BCond(kNe, general);
                    em.LdrX(x10, from, layout.value_shape);
                    em.CmpReg(x10, kShape);
                    em.BCond(kNe, general);
                }
                continue;
            }
            for (int e = 0; e < v.rows * v.cols; ++e) {
                em.LdrD(d0, x11, layout.value_space + 8 * e);
                em.StrD(d0, x12, layout.value_space + 8 * e);
                if (v.first != ValueShapes::kUnread)
                    em.StrD(d0, kBase, 8 * (static_cast<std::int64_t>(v.first) + e));
            }
        }
    }
}

// The whole evaluation; false where the program is not taken. shapes: those
// of the values of a shaped program's evaluation, null for scalars.
bool Write(Emitter& em, const Program& program, int count, double* registers, CallSpace* space,
           const Layout& layout, const Exits& exits, const ValueShapes* shapes)
{
    if (!Takes(program, count, layout))
        return false;
    if (shapes && !shapes->Fit(count, program.initialRegisters().size(), exits))
        return false;
    for (const Instr& in : program.code()) {
        // Values of shapes have no call space for other calculators.
        if (shapes && (in.op == kCall || in.op == kNumDiff))
            return false;
    }
    const std::vector<Instr>& code = program.code();
    const int general = em.NewLabel();  // the long way
    const int stop = em.NewLabel();     // hand over to the tree
    const int slow = em.NewLabel();     // a result that is not a scalar's storage
    const int early = em.NewLabel();    // the long way, before the frame
    const int thrown = em.NewLabel();   // rethrow outside

    // The count is checked before the frame exists: both the caller's (an
    // int, the upper half of x1 undefined) and the held count must be the
    // one the copy below was made for. Each 32-bit integer converts to a
    // double exactly.
    const int expected = em.Constant(Bits(static_cast<double>(count)));
    em.ScvtfW(d0, x1);
    em.LdrDConst(d1, expected);
    em.FCmp(d0, d1);
    em.BCond(kNe, early);
    em.LdrX(x9, x0, layout.param_count);
    em.ScvtfW(d0, x9);
    em.FCmp(d0, d1);
    em.BCond(kNe, early);

    Prologue(em);
    em.MovReg(kSelf, x0);
    em.MovReg(kParams, x2);
    em.MovReg(kResult, x3);
    em.MovImm(kBase, reinterpret_cast<std::uint64_t>(registers));
    em.LdrX(kHeld, kSelf, layout.params);
    em.MovImm(kShape, kScalarShape);

    // The parameter copy, scalar into held scalar, as the long way makes it;
    // to the long way for anything else. The long way copies again from the
    // start, so leaving half way is safe.
    std::vector<std::uint32_t> regOf(static_cast<std::size_t>(count), ~0u);
    for (const auto& load : program.paramLoads())
        regOf[static_cast<std::size_t>(load.first)] = load.second;
    if (shapes)
        CopyShapedParameters(em, *shapes, layout, general);
    for (int i = 0; !shapes && i < count; ++i) {
        const std::int64_t at = static_cast<std::int64_t>(i) * layout.value_size;
        em.LdrX(x9, kParams, at + layout.value_data);
        em.Cbz(x9, general);
        em.LdrX(x10, kParams, at + layout.value_shape);
        em.CmpReg(x10, kShape);
        em.BCond(kNe, general);
        em.LdrX(x11, kHeld, at + layout.value_data);
        em.Cbz(x11, general);
        em.LdrX(x10, kHeld, at + layout.value_shape);
        em.CmpReg(x10, kShape);
        em.BCond(kNe, general);
        em.LdrD(d0, x9, 0);
        em.StrD(d0, x11, 0);
        const std::uint32_t reg = regOf[static_cast<std::size_t>(i)];
        if (reg != ~0u)
            em.StrD(d0, kBase, 8 * static_cast<std::int64_t>(reg));
    }

    ValueLowering lowering(em, program, space, stop, thrown);
    for (std::size_t i = 0; i + 1 < code.size(); ++i) {
        if (!lowering.Lower(code[i]))
            return false;
    }

    // The result in place where the host's value is a scalar's storage
    // already; else the C++ that makes it one takes (result, value). A
    // shaped result's elements are in their homes already, where its C++
    // reads them.
    const int slowShaped = em.NewLabel();
    em.AddImm(x9, kResult, static_cast<std::uint32_t>(layout.value_space));
    em.LdrX(x10, kResult, layout.value_data);
    em.CmpReg(x10, x9);
    if (shapes) {
        em.BCond(kNe, slowShaped);
        const ValueShapes::Value& r = shapes->result;
        for (int e = 0; e < r.rows * r.cols; ++e) {
            em.LdrD(d0, kBase, 8 * (static_cast<std::int64_t>(r.first) + e));
            em.StrD(d0, kResult, layout.value_space + 8 * e);
        }
        em.MovImm(x9, r.ShapeWord());
        em.StrX(x9, kResult, layout.value_shape);
    } else {
        em.LdrD(d0, kBase, 8 * static_cast<std::int64_t>(program.resultRegister()));
        em.BCond(kNe, slow);
        em.StrD(d0, kResult, layout.value_space);
        em.StrX(kShape, kResult, layout.value_shape);
    }
    em.MovImm(x0, 1);
    Epilogue(em);
    em.Ret();

    // Out to C++ with the evaluation's own arguments back in place, the
    // frame taken down: the C++ returns to the host.
    auto exit = [&](int label, FastEvaluate to) {
        em.Bind(label);
        em.MovReg(x0, kSelf);
        em.MovImm(x1, static_cast<std::uint32_t>(count));
        em.MovReg(x2, kParams);
        em.MovReg(x3, kResult);
        Epilogue(em);
        em.MovImm(x16, Address(to));
        em.Br(x16);
    };
    exit(general, exits.general);
    exit(stop, exits.tree);
    if (shapes)
        exit(slowShaped, exits.shaped_result);
    else
        em.Bind(slowShaped);
    em.Bind(slow);
    em.MovReg(x0, kResult);
    Epilogue(em);
    em.MovImm(x16, Address(exits.assign));
    em.Br(x16);
    // A called calculator's exception is thrown again from C++ reached by a
    // jump, once this frame is gone.
    em.Bind(thrown);
    em.MovImm(x0, reinterpret_cast<std::uint64_t>(space));
    Epilogue(em);
    em.MovImm(x16, Address(Rethrow));
    em.Br(x16);
    em.Bind(early);
    em.MovImm(x16, Address(exits.general));
    em.Br(x16);
    return true;
}

}  // namespace

std::unique_ptr<MachineCode> MachineCode::Make(const Program& program, int count, double* registers,
                                               CallSpace* space, const Layout& layout, const Exits& exits)
{
    if (program.code().size() > kMaxInstructions || count < 0 || count > kMaxCount)
        return nullptr;
    Emitter em(kBytesAround + kBytesPerStep * (program.code().size() + static_cast<std::size_t>(count)));
    if (!Write(em, program, count, registers, space, layout, exits, nullptr))
        return nullptr;
    std::vector<std::uint8_t> bytes;
    if (!em.Finish(bytes))
        return nullptr;
    return FromBytes(bytes, {});
}

std::unique_ptr<MachineCode> MachineCode::MakeShaped(const Program& program, const ValueShapes& shapes,
                                                     double* registers, const Layout& layout, const Exits& exits)
{
    const int count = static_cast<int>(shapes.params.size());
    if (program.code().size() > kMaxInstructions || count > kMaxCount)
        return nullptr;
    // A parameter's checks and its nine elements' copies take a step's
    // room and more: two steps each.
    Emitter em(kBytesAround + kBytesPerStep * (program.code().size() + 2 * static_cast<std::size_t>(count)));
    if (!Write(em, program, count, registers, nullptr, layout, exits, &shapes))
        return nullptr;
    std::vector<std::uint8_t> bytes;
    if (!em.Finish(bytes))
        return nullptr;
    return FromBytes(bytes, {});
}

}  // namespace vexa_compiled

#endif
