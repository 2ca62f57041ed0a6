#include "vexa/compiled/aarch64/a64_emitter.h"

namespace vexa_compiled {
namespace a64 {

namespace {

constexpr std::uint32_t kLoadBit = 1u << 22;
// Single-register loads and stores of 64 bits: the unscaled form's opcode;
// the scaled and register forms add their bits to it.
constexpr std::uint32_t kXAccess = 0xF8000000;
constexpr std::uint32_t kDAccess = 0xFC000000;
constexpr std::uint32_t kScaledForm = 0x01000000;
constexpr std::uint32_t kRegisterForm = 0x00206800;  // option LSL (011)
constexpr std::uint32_t kXPair = 0xA8000000;
constexpr std::uint32_t kDPair = 0x6C000000;

bool FitsSigned(std::int64_t v, int bits)
{
    const std::int64_t half = std::int64_t{1} << (bits - 1);
    return v >= -half && v < half;
}

}  // namespace

Emitter::Emitter(std::size_t capacity) : m_capacity_words(capacity / 4) {}

void Emitter::Fail(Fault f)
{
    if (m_fault == Fault::kNone)
        m_fault = f;
}

void Emitter::Put(std::uint32_t word)
{
    if (!ok())
        return;
    if (m_words.size() >= m_capacity_words) {
        Fail(Fault::kFull);
        return;
    }
    m_words.push_back(word);
}

bool Emitter::Reg(int r, bool sp_allowed, bool zr_allowed, std::uint32_t& field)
{
    if ((r >= x0 && r <= x30) || (r == sp && sp_allowed) || (r == xzr && zr_allowed)) {
        field = static_cast<std::uint32_t>(r == xzr ? 31 : r);
        return true;
    }
    Fail(Fault::kRegister);
    return false;
}

bool Emitter::DRegField(int r, std::uint32_t& field)
{
    if (r >= d0 && r <= d31) {
        field = static_cast<std::uint32_t>(r);
        return true;
    }
    Fail(Fault::kRegister);
    return false;
}

int Emitter::NewLabel()
{
    m_labels.push_back(-1);
    return static_cast<int>(m_labels.size() - 1);
}

void Emitter::Bind(int label)
{
    if (label < 0 || static_cast<std::size_t>(label) >= m_labels.size() || m_labels[static_cast<std::size_t>(label)] >= 0) {
        Fail(Fault::kLabel);
        return;
    }
    m_labels[static_cast<std::size_t>(label)] = static_cast<std::int64_t>(m_words.size());
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

void Emitter::SetScratch(XReg r)
{
    if (r >= x0 && r <= x30)
        m_scratch = r;
    else
        Fail(Fault::kRegister);
}

// ---- integer ----

void Emitter::MovImm(XReg d, std::uint64_t value)
{
    std::uint32_t rd;
    if (!Reg(d, false, true, rd))
        return;
    int zeros = 0, ones = 0;
    for (int i = 0; i < 4; ++i) {
        const std::uint64_t h = (value >> (16 * i)) & 0xFFFF;
        zeros += h == 0;
        ones += h == 0xFFFF;
    }
    // movn starts from all ones, movz from all zeros: the one with more
    // halfwords already right needs fewer movk after it.
    const bool inverted = ones > zeros;
    const std::uint64_t skip = inverted ? 0xFFFF : 0;
    // The first instruction sets every halfword; a value that is all skip
    // halfwords still needs it once.
    std::uint32_t start = 0;
    while (start < 4 && ((value >> (16 * start)) & 0xFFFF) == skip)
        ++start;
    if (start == 4)
        start = 0;
    for (std::uint32_t i = start; i < 4; ++i) {
        const std::uint64_t h = (value >> (16 * i)) & 0xFFFF;
        if (i != start && h == skip)
            continue;
        std::uint32_t op = 0xF2800000;  // movk
        std::uint64_t imm = h;
        if (i == start) {
            op = inverted ? 0x92800000 : 0xD2800000;  // movn, movz
            imm = inverted ? (~h & 0xFFFF) : h;
        }
        Put(op | i << 21 | static_cast<std::uint32_t>(imm) << 5 | rd);
    }
}

void Emitter::MovReg(XReg d, XReg n)
{
    if (d == sp || n == sp) {
        Arith(0x91000000, d, n, 0);
        return;
    }
    std::uint32_t rd, rm;
    if (Reg(d, false, true, rd) && Reg(n, false, true, rm))
        Put(0xAA0003E0 | rm << 16 | rd);  // orr d, xzr, n
}

void Emitter::Arith(std::uint32_t op, XReg d, XReg n, std::uint32_t imm)
{
    std::uint32_t rd, rn;
    if (!Reg(d, true, false, rd) || !Reg(n, true, false, rn))
        return;
    std::uint32_t shifted = 0;
    if (imm > 0xFFF) {
        if ((imm & 0xFFF) != 0 || (imm >> 12) > 0xFFF) {
            Fail(Fault::kOffset);
            return;
        }
        imm >>= 12;
        shifted = 1u << 22;
    }
    Put(op | shifted | imm << 10 | rn << 5 | rd);
}

void Emitter::AddImm(XReg d, XReg n, std::uint32_t imm) { Arith(0x91000000, d, n, imm); }
void Emitter::SubImm(XReg d, XReg n, std::uint32_t imm) { Arith(0xD1000000, d, n, imm); }

void Emitter::CmpImm(XReg n, std::uint32_t imm)
{
    // subs xzr, n, #imm: the destination field's 31 means the zero register.
    std::uint32_t rn;
    if (!Reg(n, true, false, rn))
        return;
    if (imm > 0xFFF) {
        if ((imm & 0xFFF) != 0 || (imm >> 12) > 0xFFF) {
            Fail(Fault::kOffset);
            return;
        }
        Put(0xF140001F | (imm >> 12) << 10 | rn << 5);
        return;
    }
    Put(0xF100001F | imm << 10 | rn << 5);
}

void Emitter::CmpImmW(XReg n, std::uint32_t imm)
{
    // subs wzr, wn, #imm; field 31 of n would be wsp, which nothing here
    // compares.
    std::uint32_t rn;
    if (!Reg(n, false, false, rn))
        return;
    if (imm > 0xFFF) {
        Fail(Fault::kOffset);
        return;
    }
    Put(0x7100001F | imm << 10 | rn << 5);
}

void Emitter::AddReg(XReg d, XReg n, XReg m)
{
    std::uint32_t rd, rn, rm;
    if (Reg(d, false, true, rd) && Reg(n, false, true, rn) && Reg(m, false, true, rm))
        Put(0x8B000000 | rm << 16 | rn << 5 | rd);
}

void Emitter::SubReg(XReg d, XReg n, XReg m)
{
    std::uint32_t rd, rn, rm;
    if (Reg(d, false, true, rd) && Reg(n, false, true, rn) && Reg(m, false, true, rm))
        Put(0xCB000000 | rm << 16 | rn << 5 | rd);
}

void Emitter::CmpReg(XReg n, XReg m)
{
    std::uint32_t rn, rm;
    if (Reg(n, false, true, rn) && Reg(m, false, true, rm))
        Put(0xEB00001F | rm << 16 | rn << 5);
}

// ---- memory ----

void Emitter::Scaled(std::uint32_t op, int t, bool t_is_x, XReg base, std::int64_t offset)
{
    std::uint32_t rt, rn;
    if (!(t_is_x ? Reg(t, false, true, rt) : DRegField(t, rt)) || !Reg(base, true, false, rn))
        return;
    if (offset >= 0 && offset % 8 == 0 && offset / 8 <= 0xFFF) {
        Put(op | kScaledForm | static_cast<std::uint32_t>(offset / 8) << 10 | rn << 5 | rt);
        return;
    }
    if (FitsSigned(offset, 9)) {
        Put(op | (static_cast<std::uint32_t>(offset) & 0x1FF) << 12 | rn << 5 | rt);
        return;
    }
    // The scratch register must not be what it would overwrite: the base,
    // or the value a store is about to write.
    const bool store = (op & kLoadBit) == 0;
    if (base == m_scratch || (store && t_is_x && t == m_scratch)) {
        Fail(Fault::kRegister);
        return;
    }
    MovImm(static_cast<XReg>(m_scratch), static_cast<std::uint64_t>(offset));
    Indexed(op, t, t_is_x, base, static_cast<XReg>(m_scratch), false);
}

void Emitter::Indexed(std::uint32_t op, int t, bool t_is_x, XReg base, XReg index, bool scaled)
{
    std::uint32_t rt, rn, rm;
    if (!(t_is_x ? Reg(t, false, true, rt) : DRegField(t, rt)) || !Reg(base, true, false, rn) ||
        !Reg(index, false, true, rm))
        return;
    Put(op | kRegisterForm | rm << 16 | (scaled ? 1u << 12 : 0) | rn << 5 | rt);
}

void Emitter::LdrX(XReg t, XReg base, std::int64_t offset) { Scaled(kXAccess | kLoadBit, t, true, base, offset); }
void Emitter::StrX(XReg t, XReg base, std::int64_t offset) { Scaled(kXAccess, t, true, base, offset); }
void Emitter::LdrD(DReg t, XReg base, std::int64_t offset) { Scaled(kDAccess | kLoadBit, t, false, base, offset); }
void Emitter::StrD(DReg t, XReg base, std::int64_t offset) { Scaled(kDAccess, t, false, base, offset); }

void Emitter::LdrXIndex(XReg t, XReg base, XReg index, bool scaled)
{
    Indexed(kXAccess | kLoadBit, t, true, base, index, scaled);
}
void Emitter::StrXIndex(XReg t, XReg base, XReg index, bool scaled)
{
    Indexed(kXAccess, t, true, base, index, scaled);
}
void Emitter::LdrDIndex(DReg t, XReg base, XReg index, bool scaled)
{
    Indexed(kDAccess | kLoadBit, t, false, base, index, scaled);
}
void Emitter::StrDIndex(DReg t, XReg base, XReg index, bool scaled)
{
    Indexed(kDAccess, t, false, base, index, scaled);
}

void Emitter::Pair(std::uint32_t op, int a, int b, bool x, bool load, XReg base, std::int32_t offset, PairMode mode)
{
    std::uint32_t ra, rb, rn;
    if (!(x ? Reg(a, false, true, ra) : DRegField(a, ra)) || !(x ? Reg(b, false, true, rb) : DRegField(b, rb)) ||
        !Reg(base, true, false, rn))
        return;
    // Both unpredictable on the processor: one register loaded twice, and
    // a written-back base that is also transferred.
    if ((load && a == b) || (mode != PairMode::kOffset && x && (a == base || b == base))) {
        Fail(Fault::kRegister);
        return;
    }
    if (offset % 8 != 0 || offset < -512 || offset > 504) {
        Fail(Fault::kOffset);
        return;
    }
    const std::uint32_t form = mode == PairMode::kPostIndex ? 0x00800000 : mode == PairMode::kOffset ? 0x01000000 : 0x01800000;
    const std::uint32_t imm7 = static_cast<std::uint32_t>(offset / 8) & 0x7F;
    Put(op | form | (load ? kLoadBit : 0) | imm7 << 15 | rb << 10 | rn << 5 | ra);
}

void Emitter::Ldp(XReg a, XReg b, XReg base, std::int32_t offset, PairMode mode)
{
    Pair(kXPair, a, b, true, true, base, offset, mode);
}
void Emitter::Stp(XReg a, XReg b, XReg base, std::int32_t offset, PairMode mode)
{
    Pair(kXPair, a, b, true, false, base, offset, mode);
}
void Emitter::LdpD(DReg a, DReg b, XReg base, std::int32_t offset, PairMode mode)
{
    Pair(kDPair, a, b, false, true, base, offset, mode);
}
void Emitter::StpD(DReg a, DReg b, XReg base, std::int32_t offset, PairMode mode)
{
    Pair(kDPair, a, b, false, false, base, offset, mode);
}

void Emitter::ConstRef(std::uint32_t word, int constant)
{
    if (!ok())
        return;
    if (constant < 0 || static_cast<std::size_t>(constant) >= m_pool.size()) {
        Fail(Fault::kLabel);
        return;
    }
    m_pool_uses.push_back({m_words.size(), constant});
    Put(word);
}

void Emitter::LdrDConst(DReg t, int constant)
{
    std::uint32_t rt;
    if (DRegField(t, rt))
        ConstRef(0x5C000000 | rt, constant);
}

void Emitter::LdrXConst(XReg t, int constant)
{
    std::uint32_t rt;
    if (Reg(t, false, true, rt))
        ConstRef(0x58000000 | rt, constant);
}

// ---- branches ----

void Emitter::LabelRef(std::uint32_t word, int label)
{
    if (!ok())
        return;
    if (label < 0 || static_cast<std::size_t>(label) >= m_labels.size()) {
        Fail(Fault::kLabel);
        return;
    }
    m_branches.push_back({m_words.size(), label});
    Put(word);
}

void Emitter::B(int label) { LabelRef(0x14000000, label); }
void Emitter::Bl(int label) { LabelRef(0x94000000, label); }

void Emitter::BCond(Cond c, int label)
{
    if (c > kAl) {
        Fail(Fault::kOffset);
        return;
    }
    LabelRef(0x54000000 | c, label);
}

void Emitter::Cbz(XReg t, int label)
{
    std::uint32_t rt;
    if (Reg(t, false, true, rt))
        LabelRef(0xB4000000 | rt, label);
}

void Emitter::Cbnz(XReg t, int label)
{
    std::uint32_t rt;
    if (Reg(t, false, true, rt))
        LabelRef(0xB5000000 | rt, label);
}

void Emitter::Br(XReg n)
{
    std::uint32_t rn;
    if (Reg(n, false, false, rn))
        Put(0xD61F0000 | rn << 5);
}

void Emitter::Blr(XReg n)
{
    std::uint32_t rn;
    if (Reg(n, false, false, rn))
        Put(0xD63F0000 | rn << 5);
}

void Emitter::Ret(XReg n)
{
    std::uint32_t rn;
    if (Reg(n, false, false, rn))
        Put(0xD65F0000 | rn << 5);
}

void Emitter::Nop() { Put(0xD503201F); }

bool Emitter::Patch(std::uint32_t& word, std::int64_t delta)
{
    if (delta % 4 != 0)
        return false;
    const std::int64_t units = delta / 4;
    if ((word & 0x7C000000) == 0x14000000) {  // b, bl
        if (!FitsSigned(units, 26))
            return false;
        word = (word & ~0x03FFFFFFu) | (static_cast<std::uint32_t>(units) & 0x03FFFFFF);
        return true;
    }
    // b.cond, cbz, cbnz, ldr (literal): a 19-bit field from bit 5
    if (!FitsSigned(units, 19))
        return false;
    word = (word & ~(0x7FFFFu << 5)) | (static_cast<std::uint32_t>(units) & 0x7FFFF) << 5;
    return true;
}

// ---- scalar doubles ----

void Emitter::FpOp3(std::uint32_t op, DReg d, DReg n, DReg m)
{
    std::uint32_t rd, rn, rm;
    if (DRegField(d, rd) && DRegField(n, rn) && DRegField(m, rm))
        Put(op | rm << 16 | rn << 5 | rd);
}

void Emitter::FpOp2(std::uint32_t op, DReg d, DReg n)
{
    std::uint32_t rd, rn;
    if (DRegField(d, rd) && DRegField(n, rn))
        Put(op | rn << 5 | rd);
}

void Emitter::FAdd(DReg d, DReg n, DReg m) { FpOp3(0x1E602800, d, n, m); }
void Emitter::FSub(DReg d, DReg n, DReg m) { FpOp3(0x1E603800, d, n, m); }
void Emitter::FMul(DReg d, DReg n, DReg m) { FpOp3(0x1E600800, d, n, m); }
void Emitter::FDiv(DReg d, DReg n, DReg m) { FpOp3(0x1E601800, d, n, m); }
void Emitter::FSqrt(DReg d, DReg n) { FpOp2(0x1E61C000, d, n); }
void Emitter::FAbs(DReg d, DReg n) { FpOp2(0x1E60C000, d, n); }
void Emitter::FNeg(DReg d, DReg n) { FpOp2(0x1E614000, d, n); }
void Emitter::FMov(DReg d, DReg n) { FpOp2(0x1E604000, d, n); }
void Emitter::FrintZ(DReg d, DReg n) { FpOp2(0x1E65C000, d, n); }
void Emitter::FrintA(DReg d, DReg n) { FpOp2(0x1E664000, d, n); }
void Emitter::FrintM(DReg d, DReg n) { FpOp2(0x1E654000, d, n); }
void Emitter::FrintP(DReg d, DReg n) { FpOp2(0x1E64C000, d, n); }

void Emitter::FCmp(DReg n, DReg m) { FpOp3(0x1E602000, d0, n, m); }
void Emitter::FCmpZero(DReg n) { FpOp2(0x1E602008, d0, n); }

void Emitter::FCsel(DReg d, DReg n, DReg m, Cond c)
{
    if (c > kAl) {
        Fail(Fault::kOffset);
        return;
    }
    FpOp3(0x1E600C00 | c << 12, d, n, m);
}

void Emitter::FMovToX(XReg d, DReg n)
{
    std::uint32_t rd, rn;
    if (Reg(d, false, true, rd) && DRegField(n, rn))
        Put(0x9E660000 | rn << 5 | rd);
}

void Emitter::FMovFromX(DReg d, XReg n)
{
    std::uint32_t rd, rn;
    if (DRegField(d, rd) && Reg(n, false, true, rn))
        Put(0x9E670000 | rn << 5 | rd);
}

void Emitter::FCvtzsW(XReg d, DReg n)
{
    std::uint32_t rd, rn;
    if (Reg(d, false, true, rd) && DRegField(n, rn))
        Put(0x1E780000 | rn << 5 | rd);
}

void Emitter::ScvtfW(DReg d, XReg n)
{
    std::uint32_t rd, rn;
    if (DRegField(d, rd) && Reg(n, false, true, rn))
        Put(0x1E620000 | rn << 5 | rd);
}

// ---- the finished code ----

bool Emitter::Finish(std::vector<std::uint8_t>& out)
{
    out.clear();
    if (!ok())
        return false;
    std::vector<std::uint32_t> words = m_words;
    for (const Fixup& f : m_branches) {
        const std::int64_t target = m_labels[static_cast<std::size_t>(f.target)];
        if (target < 0) {
            Fail(Fault::kLabel);
            return false;
        }
        if (!Patch(words[f.at], 4 * (target - static_cast<std::int64_t>(f.at)))) {
            Fail(Fault::kRange);
            return false;
        }
    }
    // The constants start at the next multiple of 8; the filler word, were
    // it ever run, is a permanently undefined instruction.
    const std::size_t pool_word = m_pool.empty() ? words.size() : (words.size() + 1) & ~std::size_t{1};
    if (pool_word + 2 * m_pool.size() > m_capacity_words) {
        Fail(Fault::kFull);
        return false;
    }
    for (const Fixup& f : m_pool_uses) {
        const std::size_t target = pool_word + 2 * static_cast<std::size_t>(f.target);
        if (!Patch(words[f.at], 4 * (static_cast<std::int64_t>(target) - static_cast<std::int64_t>(f.at)))) {
            Fail(Fault::kRange);
            return false;
        }
    }
    words.resize(pool_word, 0);
    for (std::uint64_t bits : m_pool) {
        words.push_back(static_cast<std::uint32_t>(bits));
        words.push_back(static_cast<std::uint32_t>(bits >> 32));
    }
    out.reserve(4 * words.size());
    for (std::uint32_t w : words) {
        for (int i = 0; i < 4; ++i)
            out.push_back(static_cast<std::uint8_t>(w >> (8 * i)));
    }
    return true;
}

}  // namespace a64
}  // namespace vexa_compiled
