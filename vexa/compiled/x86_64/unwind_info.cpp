#include "vexa/compiled/x86_64/unwind_info.h"

namespace vexa_compiled {
namespace x64 {

namespace {

// Operation codes of the format's 16-bit slots.
constexpr std::uint8_t kPushNonvol = 0;
constexpr std::uint8_t kAllocLarge = 1;
constexpr std::uint8_t kAllocSmall = 2;
constexpr std::uint8_t kSaveXmm128 = 8;

void Slot(std::vector<std::uint8_t>& codes, std::uint8_t offset, std::uint8_t op, int info)
{
    codes.push_back(offset);
    codes.push_back(static_cast<std::uint8_t>(op | (info & 15) << 4));
}

void Operand(std::vector<std::uint8_t>& codes, std::uint32_t v)
{
    codes.push_back(static_cast<std::uint8_t>(v));
    codes.push_back(static_cast<std::uint8_t>(v >> 8));
}

}  // namespace

bool WindowsUnwindInfo(const std::vector<PrologueStep>& steps, std::vector<std::uint8_t>& out)
{
    out.clear();
    std::uint32_t size = 0;
    for (const PrologueStep& s : steps)
        size = s.end > size ? s.end : size;
    if (size > 255)
        return false;
    // The unwinder reads the slots last instruction first.
    std::vector<std::uint8_t> codes;
    for (auto s = steps.rbegin(); s != steps.rend(); ++s) {
        const std::uint8_t at = static_cast<std::uint8_t>(s->end);
        switch (s->kind) {
        case PrologueStep::kPush:
            Slot(codes, at, kPushNonvol, s->reg);
            break;
        case PrologueStep::kAlloc:
            if (s->value <= 0 || s->value % 8 != 0 || s->value >= 512 * 1024)
                return false;
            if (s->value <= 128) {
                Slot(codes, at, kAllocSmall, s->value / 8 - 1);
            } else {
                Slot(codes, at, kAllocLarge, 0);
                Operand(codes, static_cast<std::uint32_t>(s->value / 8));
            }
            break;
        case PrologueStep::kSaveXmm:
            if (s->value < 0 || s->value % 16 != 0 || s->value / 16 > 0xFFFF)
                return false;
            Slot(codes, at, kSaveXmm128, s->reg);
            Operand(codes, static_cast<std::uint32_t>(s->value / 16));
            break;
        }
    }
    const std::size_t slots = codes.size() / 2;
    if (slots > 255)
        return false;
    out.push_back(1);  // version 1, no handler
    out.push_back(static_cast<std::uint8_t>(size));
    out.push_back(static_cast<std::uint8_t>(slots));
    out.push_back(0);  // no frame register
    out.insert(out.end(), codes.begin(), codes.end());
    // The slot array is an even number of slots long.
    if (slots % 2 != 0)
        out.insert(out.end(), 2, 0);
    return true;
}

}  // namespace x64
}  // namespace vexa_compiled
