#include "vexa/compiled/x86_64/x64_emitter.h"

#include <cstring>

namespace vexa_compiled {
namespace x64 {

int Emitter::NewLabel()
{
    m_labels.push_back(-1);
    return static_cast<int>(m_labels.size() - 1);
}

void Emitter::Bind(int label)
{
    m_labels[static_cast<std::size_t>(label)] = static_cast<std::int64_t>(m_code.size());
}

int Emitter::Constant(std::uint64_t bits)
{
    for (std::size_t i = 0; i < m_pool.size(); ++i) {
        if (m_pool[i] == bits)
            return static_cast<int>(i);
    }
    m_pool.push_back(bits);
    return static_cast<int>(m_pool.size() - 1);
}

void Emitter::U32(std::uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        Byte(static_cast<std::uint8_t>(v >> (8 * i)));
}

void Emitter::Rex(bool wide, int reg, int base, bool always)
{
    const std::uint8_t rex = static_cast<std::uint8_t>(0x40 | (wide ? 8 : 0) | ((reg >> 3) & 1) << 2 | ((base >> 3) & 1));
    if (rex != 0x40 || always)
        Byte(rex);
}

// Always the 32-bit displacement form; rsp and r12 as a base need a SIB byte.
void Emitter::ModRM(int reg, Mem m)
{
    Byte(static_cast<std::uint8_t>(0x80 | (reg & 7) << 3 | (m.base & 7)));
    if ((m.base & 7) == rsp)
        Byte(0x24);
    U32(static_cast<std::uint32_t>(m.disp));
}

void Emitter::ModRMReg(int reg, int rm)
{
    Byte(static_cast<std::uint8_t>(0xC0 | (reg & 7) << 3 | (rm & 7)));
}

void Emitter::Push(int r)
{
    Rex(false, 0, r);
    Byte(static_cast<std::uint8_t>(0x50 + (r & 7)));
}

void Emitter::Pop(int r)
{
    Rex(false, 0, r);
    Byte(static_cast<std::uint8_t>(0x58 + (r & 7)));
}

void Emitter::MovImm64(int r, std::uint64_t v)
{
    Rex(true, 0, r);
    Byte(static_cast<std::uint8_t>(0xB8 + (r & 7)));
    for (int i = 0; i < 8; ++i)
        Byte(static_cast<std::uint8_t>(v >> (8 * i)));
}

void Emitter::MovImm32(int r, std::uint32_t v)
{
    Rex(false, 0, r);
    Byte(static_cast<std::uint8_t>(0xB8 + (r & 7)));
    U32(v);
}

void Emitter::MovLoad(int r, Mem m)
{
    Rex(true, r, m.base);
    Byte(0x8B);
    ModRM(r, m);
}

void Emitter::MovStore(Mem m, int r)
{
    Rex(true, r, m.base);
    Byte(0x89);
    ModRM(r, m);
}

void Emitter::MovReg(int dst, int src)
{
    Rex(true, src, dst);
    Byte(0x89);
    ModRMReg(src, dst);
}

void Emitter::Lea(int r, Mem m)
{
    Rex(true, r, m.base);
    Byte(0x8D);
    ModRM(r, m);
}

void Emitter::CmpReg(int a, int b)
{
    Rex(true, b, a);
    Byte(0x39);
    ModRMReg(b, a);
}

void Emitter::CmpMemReg(Mem m, int r)
{
    Rex(true, r, m.base);
    Byte(0x39);
    ModRM(r, m);
}

void Emitter::CmpImm32(int r, std::int32_t v)
{
    Rex(false, 0, r);
    Byte(0x81);
    ModRMReg(7, r);
    U32(static_cast<std::uint32_t>(v));
}

void Emitter::CmpMemImm32(Mem m, std::int32_t v)
{
    Rex(false, 0, m.base);
    Byte(0x81);
    ModRM(7, m);
    U32(static_cast<std::uint32_t>(v));
}

void Emitter::Test(int a, int b)
{
    Rex(true, b, a);
    Byte(0x85);
    ModRMReg(b, a);
}

void Emitter::AddRsp(std::int32_t v)
{
    Rex(true, 0, rsp);
    Byte(0x81);
    ModRMReg(0, rsp);
    U32(static_cast<std::uint32_t>(v));
}

void Emitter::SubRsp(std::int32_t v)
{
    Rex(true, 0, rsp);
    Byte(0x81);
    ModRMReg(5, rsp);
    U32(static_cast<std::uint32_t>(v));
}

void Emitter::Call(int r)
{
    Rex(false, 0, r);
    Byte(0xFF);
    ModRMReg(2, r);
}

void Emitter::Jmp(int r)
{
    Rex(false, 0, r);
    Byte(0xFF);
    ModRMReg(4, r);
}

void Emitter::Jump(int label)
{
    Byte(0xE9);
    m_jumps.push_back({m_code.size(), label});
    U32(0);
}

void Emitter::Jump(Cond c, int label)
{
    Byte(0x0F);
    Byte(static_cast<std::uint8_t>(0x80 | c));
    m_jumps.push_back({m_code.size(), label});
    U32(0);
}

// The mandatory prefix (F2 or 66) goes before the REX prefix.
void Emitter::Sse(std::uint8_t prefix, std::uint8_t op, int reg, Mem m)
{
    Byte(prefix);
    Rex(false, reg, m.base);
    Byte(0x0F);
    Byte(op);
    ModRM(reg, m);
}

void Emitter::SseReg(std::uint8_t prefix, std::uint8_t op, int reg, int rm)
{
    Byte(prefix);
    Rex(false, reg, rm);
    Byte(0x0F);
    Byte(op);
    ModRMReg(reg, rm);
}

void Emitter::SsePool(std::uint8_t prefix, std::uint8_t op, int reg, int constant)
{
    Byte(prefix);
    Rex(false, reg, 0);
    Byte(0x0F);
    Byte(op);
    Byte(static_cast<std::uint8_t>(0x05 | (reg & 7) << 3));  // [rip + disp32]
    m_pool_uses.push_back({m_code.size(), constant});
    U32(0);
}

void Emitter::MovsdLoad(int x, Mem m) { Sse(0xF2, 0x10, x, m); }
void Emitter::MovsdStore(Mem m, int x) { Sse(0xF2, 0x11, x, m); }
void Emitter::MovsdLoadPool(int x, int constant) { SsePool(0xF2, 0x10, x, constant); }
void Emitter::MovupdLoad(int x, Mem m) { Sse(0x66, 0x10, x, m); }
void Emitter::MovupdStore(Mem m, int x) { Sse(0x66, 0x11, x, m); }
void Emitter::Movapd(int dst, int src) { SseReg(0x66, 0x28, dst, src); }
void Emitter::Arith(std::uint8_t op, int x, int src) { SseReg(0xF2, op, x, src); }
void Emitter::Arith(std::uint8_t op, int x, Mem m) { Sse(0xF2, op, x, m); }
void Emitter::ArithPool(std::uint8_t op, int x, int constant) { SsePool(0xF2, op, x, constant); }
void Emitter::AndpdPool(int x, int constant) { SsePool(0x66, 0x54, x, constant); }
void Emitter::Xorpd(int dst, int src) { SseReg(0x66, 0x57, dst, src); }
void Emitter::XorpdPool(int x, int constant) { SsePool(0x66, 0x57, x, constant); }
void Emitter::Ucomisd(int x, int src) { SseReg(0x66, 0x2E, x, src); }
void Emitter::Ucomisd(int x, Mem m) { Sse(0x66, 0x2E, x, m); }
void Emitter::UcomisdPool(int x, int constant) { SsePool(0x66, 0x2E, x, constant); }
void Emitter::Cvttsd2si(int r, int x) { SseReg(0xF2, 0x2C, r, x); }
void Emitter::Cvtsi2sd(int x, int r) { SseReg(0xF2, 0x2A, x, r); }

std::vector<std::uint8_t> Emitter::Finish()
{
    for (const Fixup& f : m_jumps) {
        const std::int64_t target = m_labels[static_cast<std::size_t>(f.target)];
        const std::int32_t rel = static_cast<std::int32_t>(target - static_cast<std::int64_t>(f.at + 4));
        std::memcpy(&m_code[f.at], &rel, 4);
    }
    // The pool follows the code: 16-byte entries, 16-byte aligned, since
    // andpd reads a whole aligned 16-byte operand (the value twice).
    while (m_code.size() % 16)
        Byte(0xCC);
    const std::size_t pool = m_code.size();
    for (std::uint64_t bits : m_pool) {
        for (int i = 0; i < 16; ++i)
            Byte(static_cast<std::uint8_t>(bits >> (8 * (i % 8))));
    }
    for (const Fixup& f : m_pool_uses) {
        const std::int64_t target = static_cast<std::int64_t>(pool + 16 * static_cast<std::size_t>(f.target));
        const std::int32_t rel = static_cast<std::int32_t>(target - static_cast<std::int64_t>(f.at + 4));
        std::memcpy(&m_code[f.at], &rel, 4);
    }
    return m_code;
}

}  // namespace x64
}  // namespace vexa_compiled
