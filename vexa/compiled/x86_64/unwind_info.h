#ifndef VEXA_COMPILED_UNWIND_INFO_H
#define VEXA_COMPILED_UNWIND_INFO_H

#include <cstdint>
#include <vector>

// The description of a prologue that Windows' unwinder reads (its
// UNWIND_INFO record): with it, exception dispatch and debuggers walk from
// a function the generated code called back through that code to its host.
// Written on every host, so that the bytes can be checked anywhere; only a
// Windows build registers them. Internal.
namespace vexa_compiled {
namespace x64 {

// One instruction of a prologue, with the offset of the byte after it from
// the code's entry.
struct PrologueStep {
    enum Kind { kPush, kAlloc, kSaveXmm };
    Kind kind;
    std::uint32_t end;
    int reg;             // the register pushed or xmm saved
    std::int32_t value;  // bytes allocated, or the save's offset from rsp
};

// The record for steps in the order they run; false (out left empty) where
// the prologue does not fit the format: more than 255 bytes from the entry,
// an allocation or save offset the codes cannot say.
bool WindowsUnwindInfo(const std::vector<PrologueStep>& steps, std::vector<std::uint8_t>& out);

}  // namespace x64
}  // namespace vexa_compiled

#endif
