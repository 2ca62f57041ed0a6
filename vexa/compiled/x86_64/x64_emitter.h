#ifndef VEXA_COMPILED_X64_EMITTER_H
#define VEXA_COMPILED_X64_EMITTER_H

#include <cstdint>
#include <vector>

// Writes x86-64 machine code: the few integer and SSE2 scalar-double
// instructions the machine-code back end of the compiled evaluation uses.
// Memory operands are a base register plus a 32-bit displacement, or an
// entry of a constant pool placed after the code (addressed relative to the
// instruction pointer). The code must be placed at a 16-byte aligned address.
// Internal to the library.
namespace vexa_compiled {
namespace x64 {

enum Reg : int { rax, rcx, rdx, rbx, rsp, rbp, rsi, rdi, r8, r9, r10, r11, r12, r13, r14, r15 };

// Condition codes of the jumps, as after ucomisd or cmp.
enum Cond : std::uint8_t {
    kBelow = 0x2,         // CF (also unordered after ucomisd)
    kAboveOrEqual = 0x3,  // !CF
    kEqual = 0x4,         // ZF (also unordered after ucomisd)
    kNotEqual = 0x5,
    kBelowOrEqual = 0x6,  // CF || ZF (also unordered after ucomisd)
    kAbove = 0x7,  // !CF && !ZF (false when unordered)
    kParity = 0xA,
};

struct Mem {
    int base;
    std::int32_t disp;
};

class Emitter {
public:
    // Labels are indices; a jump to a label bound later is patched then.
    int NewLabel();
    void Bind(int label);
    // An 8-byte constant in the pool; Pool(index) addresses it.
    int Constant(std::uint64_t bits);

    void Push(int r);
    void Pop(int r);
    void Ret() { Byte(0xC3); }
    void MovImm64(int r, std::uint64_t v);
    void MovImm32(int r, std::uint32_t v);
    void MovLoad(int r, Mem m);    // mov r64, [m]
    void MovStore(Mem m, int r);   // mov [m], r64
    void MovReg(int dst, int src);  // mov r64, r64
    void Lea(int r, Mem m);
    void CmpReg(int a, int b);           // flags of a - b, 64 bits
    void CmpMemReg(Mem m, int r);         // flags of [m] - r, 64 bits
    void CmpImm32(int r, std::int32_t v);   // flags of r32 - v
    void CmpMemImm32(Mem m, std::int32_t v);  // flags of dword [m] - v
    void Test(int a, int b);
    void AddRsp(std::int32_t v);
    void SubRsp(std::int32_t v);
    void Call(int r);
    void Jmp(int r);
    void Jump(int label);
    void Jump(Cond c, int label);

    // Scalar doubles. A second operand is an xmm register or memory.
    void MovsdLoad(int x, Mem m);
    void MovsdStore(Mem m, int x);
    void MovsdLoadPool(int x, int constant);
    // All 128 bits, at any alignment: a callee's kept xmm registers.
    void MovupdLoad(int x, Mem m);
    void MovupdStore(Mem m, int x);
    void Movapd(int dst, int src);
    void Arith(std::uint8_t op, int x, int src);  // op: 0x58 add, 0x59 mul, 0x5C sub, 0x5E div, 0x51 sqrt
    void Arith(std::uint8_t op, int x, Mem m);
    void ArithPool(std::uint8_t op, int x, int constant);
    void AndpdPool(int x, int constant);
    void Xorpd(int dst, int src);
    void XorpdPool(int x, int constant);
    void Ucomisd(int x, int src);
    void Ucomisd(int x, Mem m);
    void UcomisdPool(int x, int constant);
    void Cvttsd2si(int r, int x);  // 32-bit integer
    void Cvtsi2sd(int x, int r);

    // Bytes written so far: the offset of the next instruction.
    std::size_t Position() const { return m_code.size(); }

    // The finished code with its pool, every jump and pool address resolved.
    std::vector<std::uint8_t> Finish();

private:
    void Byte(std::uint8_t b) { m_code.push_back(b); }
    void U32(std::uint32_t v);
    void Rex(bool wide, int reg, int base, bool always = false);
    void ModRM(int reg, Mem m);
    void ModRMReg(int reg, int rm);
    void Sse(std::uint8_t prefix, std::uint8_t op, int reg, Mem m);
    void SseReg(std::uint8_t prefix, std::uint8_t op, int reg, int rm);
    void SsePool(std::uint8_t prefix, std::uint8_t op, int reg, int constant);

    struct Fixup {
        std::size_t at;  // where the 32-bit field is
        int target;      // label, or constant index
    };
    std::vector<std::uint8_t> m_code;
    std::vector<std::int64_t> m_labels;
    std::vector<Fixup> m_jumps;
    std::vector<std::uint64_t> m_pool;
    std::vector<Fixup> m_pool_uses;
};

}  // namespace x64
}  // namespace vexa_compiled

#endif
