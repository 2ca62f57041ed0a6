#ifndef VEXA_COMPILED_A64_EMITTER_H
#define VEXA_COMPILED_A64_EMITTER_H

#include <cstddef>
#include <cstdint>
#include <vector>

// Writes AArch64 (A64) machine code: the integer, memory, branch and
// scalar-double instructions a compiled program with calls into the library
// needs. The code goes into a buffer of a size fixed when the emitter is
// made; every word is counted against it before it is written. Whatever
// cannot be written as asked (a full buffer, a branch or literal beyond its
// reach, an offset or immediate no form can take, a register the form does
// not allow, a label used but never bound) is not written approximately:
// the emitter records the first such fault, writes nothing more, and Finish
// answers false, so that the caller keeps to the interpreter.
//
// Not offered on purpose: fmin/fmax and their "nm" forms, whose NaN and
// signed-zero rules are not the tree's (MIN and MAX are written with fcmp
// and fcsel), and the fused multiply-adds, whose single rounding would not
// give the tree's bits. Internal to the library.
namespace vexa_compiled {
namespace a64 {

// General registers. Number 31 is the stack pointer in some operands and
// the zero register in others: the two are told apart here, and each
// operand accepts only the one its encoding means.
enum XReg : int {
    x0, x1, x2, x3, x4, x5, x6, x7, x8, x9, x10, x11, x12, x13, x14, x15,
    x16, x17, x18, x19, x20, x21, x22, x23, x24, x25, x26, x27, x28, x29, x30,
    sp = 31,
    xzr = 32,
};

enum DReg : int {
    d0, d1, d2, d3, d4, d5, d6, d7, d8, d9, d10, d11, d12, d13, d14, d15,
    d16, d17, d18, d19, d20, d21, d22, d23, d24, d25, d26, d27, d28, d29, d30, d31,
};

// Conditions of b.cond and fcsel. After fcmp an unordered pair (a NaN)
// sets C and V: kEq, kMi (less), kLs (less or equal), kGt, kGe and kVc are
// false for it; kNe, kLt, kLe, kHi, kHs, kPl and kVs are true.
enum Cond : std::uint32_t {
    kEq, kNe, kHs, kLo, kMi, kPl, kVs, kVc, kHi, kLs, kGe, kLt, kGt, kLe, kAl,
};

// Addressing of the register-pair loads and stores.
enum class PairMode { kOffset, kPreIndex, kPostIndex };

enum class Fault {
    kNone,
    kFull,      // the buffer has no room for the word
    kRange,     // a branch or literal load cannot reach its target
    kOffset,    // an offset, immediate or condition no form of the instruction takes
    kRegister,  // a register number the operand does not allow
    kLabel,     // a label or constant unknown, a label bound twice or used and never bound
};

class Emitter {
public:
    // capacity: bytes the finished code, with its constants, may take.
    explicit Emitter(std::size_t capacity);

    Fault fault() const { return m_fault; }
    bool ok() const { return m_fault == Fault::kNone; }
    // Bytes written so far (code only, without the constants).
    std::size_t size() const { return 4 * m_words.size(); }

    // Labels are indices; a branch to a label is resolved in Finish.
    int NewLabel();
    void Bind(int label);
    // An 8-byte constant placed after the code; equal bits share one entry.
    int Constant(std::uint64_t bits);

    // The register a load or store whose offset no form takes uses for the
    // offset: x16 unless set (x0..x30).
    void SetScratch(XReg r);

    // Integer.
    void MovImm(XReg d, std::uint64_t value);  // movz or movn, then movk: fewest words
    void MovReg(XReg d, XReg n);               // sp on either side goes through add #0
    void AddImm(XReg d, XReg n, std::uint32_t imm);  // imm12, or imm12 << 12
    void SubImm(XReg d, XReg n, std::uint32_t imm);
    void AddReg(XReg d, XReg n, XReg m);
    void SubReg(XReg d, XReg n, XReg m);
    void CmpImm(XReg n, std::uint32_t imm);
    void CmpReg(XReg n, XReg m);
    // The low 32 bits of n (an int a C++ function answered, the upper half
    // undefined) against imm12.
    void CmpImmW(XReg n, std::uint32_t imm);

    // Loads and stores at base + offset: the scaled unsigned 12-bit form
    // where the offset fits it, else the unscaled 9-bit signed one, else
    // the offset is put in the scratch register and the register form used.
    void LdrX(XReg t, XReg base, std::int64_t offset);
    void StrX(XReg t, XReg base, std::int64_t offset);
    void LdrD(DReg t, XReg base, std::int64_t offset);
    void StrD(DReg t, XReg base, std::int64_t offset);
    // At base + index, or base + index * 8 when scaled.
    void LdrXIndex(XReg t, XReg base, XReg index, bool scaled);
    void StrXIndex(XReg t, XReg base, XReg index, bool scaled);
    void LdrDIndex(DReg t, XReg base, XReg index, bool scaled);
    void StrDIndex(DReg t, XReg base, XReg index, bool scaled);
    // Pairs: offset a multiple of 8 in -512..504.
    void Ldp(XReg a, XReg b, XReg base, std::int32_t offset, PairMode mode);
    void Stp(XReg a, XReg b, XReg base, std::int32_t offset, PairMode mode);
    void LdpD(DReg a, DReg b, XReg base, std::int32_t offset, PairMode mode);
    void StpD(DReg a, DReg b, XReg base, std::int32_t offset, PairMode mode);
    // A constant of Constant() loaded relative to the instruction.
    void LdrDConst(DReg t, int constant);
    void LdrXConst(XReg t, int constant);

    // Branches.
    void B(int label);
    void BCond(Cond c, int label);
    void Cbz(XReg t, int label);
    void Cbnz(XReg t, int label);
    void Bl(int label);
    void Br(XReg n);
    void Blr(XReg n);
    void Ret(XReg n = x30);
    void Nop();

    // Scalar doubles.
    void FAdd(DReg d, DReg n, DReg m);
    void FSub(DReg d, DReg n, DReg m);
    void FMul(DReg d, DReg n, DReg m);
    void FDiv(DReg d, DReg n, DReg m);
    void FSqrt(DReg d, DReg n);
    void FAbs(DReg d, DReg n);
    void FNeg(DReg d, DReg n);
    void FMov(DReg d, DReg n);
    void FrintZ(DReg d, DReg n);  // toward zero
    void FrintA(DReg d, DReg n);  // to nearest, ties away from zero
    void FrintM(DReg d, DReg n);  // toward minus infinity
    void FrintP(DReg d, DReg n);  // toward plus infinity
    void FCmp(DReg n, DReg m);    // quiet: no invalid-operation flag for a quiet NaN
    void FCmpZero(DReg n);
    void FCsel(DReg d, DReg n, DReg m, Cond c);  // d = c ? n : m
    void FMovToX(XReg d, DReg n);    // the bits, unchanged
    void FMovFromX(DReg d, XReg n);  // the bits, unchanged; xzr gives +0.0
    void FCvtzsW(XReg d, DReg n);    // to a 32-bit integer, toward zero
    void ScvtfW(DReg d, XReg n);     // from a 32-bit integer

    // The code, then the constants at the next multiple of 8, as bytes in
    // the order the processor reads them, every branch and literal load
    // resolved. False (out left empty) after any fault. The code must be
    // placed at an address that is a multiple of 8.
    bool Finish(std::vector<std::uint8_t>& out);

    // The word of a branch or literal load (op with a zero offset field)
    // reaching delta bytes ahead; false where the field cannot hold it.
    static bool Patch(std::uint32_t& word, std::int64_t delta);

private:
    void Put(std::uint32_t word);
    void Fail(Fault f);
    bool Reg(int r, bool sp_allowed, bool zr_allowed, std::uint32_t& field);
    bool DRegField(int r, std::uint32_t& field);
    void Arith(std::uint32_t op, XReg d, XReg n, std::uint32_t imm);
    void Scaled(std::uint32_t op, int t, bool t_is_x, XReg base, std::int64_t offset);
    void Indexed(std::uint32_t op, int t, bool t_is_x, XReg base, XReg index, bool scaled);
    void Pair(std::uint32_t op, int a, int b, bool x, bool load, XReg base, std::int32_t offset, PairMode mode);
    void FpOp3(std::uint32_t op, DReg d, DReg n, DReg m);
    void FpOp2(std::uint32_t op, DReg d, DReg n);
    void LabelRef(std::uint32_t word, int label);
    void ConstRef(std::uint32_t word, int constant);

    struct Fixup {
        std::size_t at;  // word index of the branch or load
        int target;      // label, or constant index
    };
    std::size_t m_capacity_words;
    std::vector<std::uint32_t> m_words;
    std::vector<std::int64_t> m_labels;  // word index, -1 while unbound
    std::vector<Fixup> m_branches;
    std::vector<std::uint64_t> m_pool;
    std::vector<Fixup> m_pool_uses;
    int m_scratch = x16;
    Fault m_fault = Fault::kNone;
};

}  // namespace a64
}  // namespace vexa_compiled

#endif
