#!/usr/bin/env python3
"""Writes tests/data/a64_encodings.txt: the AArch64 emitter's calls in a small
text form, each with the bytes the GNU cross assembler gives for it.

    python3 scripts/a64_golden.py          # needs aarch64-linux-gnu-as and -objdump
                                           # (Debian: binutils-aarch64-linux-gnu)

Every case is assembled in a section of its own and read back with objdump.
Where the emitter picks among instruction sequences (movz or movn and how many
movk; the scaled, unscaled or register form of a load) the choice is made
here as well, so the table pins it."""

import os
import re
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
OUT = os.path.join(ROOT, "tests", "data", "a64_encodings.txt")
AS = os.environ.get("A64_AS", "aarch64-linux-gnu-as")
OBJDUMP = os.environ.get("A64_OBJDUMP", "aarch64-linux-gnu-objdump")

X = ["x%d" % i for i in range(31)]
X_SP = X + ["sp"]
X_ZR = X + ["xzr"]
W_ZR = ["w%d" % i for i in range(31)] + ["wzr"]
D = ["d%d" % i for i in range(32)]
CONDS = ["eq", "ne", "hs", "lo", "mi", "pl", "vs", "vc", "hi", "ls", "ge", "lt", "gt", "le", "al"]
SCRATCH = "x16"
ONE = 0x3FF0000000000000

cases = []  # (text form, assembly lines)


def case(form, args, asm):
    cases.append((" ".join([form] + [str(a) for a in args]), asm if isinstance(asm, list) else [asm]))


def sweep(form, slots, fixed, asm, allowed=lambda *args: True):
    """Every register of each slot in turn, the other slots at their fixed ones."""
    for k, regs in enumerate(slots):
        for r in regs:
            args = list(fixed)
            args[k] = r
            if allowed(*args):
                case(form, args, asm(*args))


def mov_imm(rd, value):
    halves = [(value >> (16 * i)) & 0xFFFF for i in range(4)]
    inverted = halves.count(0xFFFF) > halves.count(0)
    skip = 0xFFFF if inverted else 0
    start = next((i for i in range(4) if halves[i] != skip), 0)
    lines = []
    for i in range(start, 4):
        if i != start and halves[i] == skip:
            continue
        if i == start:
            op, imm = ("movn", ~halves[i] & 0xFFFF) if inverted else ("movz", halves[i])
        else:
            op, imm = "movk", halves[i]
        lines.append("%s %s, #%d, lsl #%d" % (op, rd, imm, 16 * i))
    return lines


def access(op, t, base, offset):
    if offset >= 0 and offset % 8 == 0 and offset // 8 <= 0xFFF:
        return ["%s %s, [%s, #%d]" % (op, t, base, offset)]
    if -256 <= offset <= 255:
        return ["%s %s, [%s, #%d]" % (op.replace("ldr", "ldur").replace("str", "stur"), t, base, offset)]
    return mov_imm(SCRATCH, offset & 0xFFFFFFFFFFFFFFFF) + ["%s %s, [%s, %s]" % (op, t, base, SCRATCH)]


def arith_imm(op, d, n, imm):
    return "%s %s, %s, #%d" % (op, d, n, imm) if imm <= 0xFFF else "%s %s, %s, #%d, lsl #12" % (op, d, n, imm >> 12)


def pair_asm(op, a, b, base, off, mode):
    addr = {"off": "[%s, #%d]" % (base, off), "pre": "[%s, #%d]!" % (base, off), "post": "[%s], #%d" % (base, off)}
    return "%s %s, %s, %s" % (op, a, b, addr[mode])


def rel(delta):
    return ".%+d" % delta


def build():
    # Scalar doubles.
    for form, op in [("FAdd", "fadd"), ("FSub", "fsub"), ("FMul", "fmul"), ("FDiv", "fdiv")]:
        sweep(form, [D, D, D], ["d1", "d2", "d3"], lambda d, n, m, op=op: "%s %s, %s, %s" % (op, d, n, m))
    for form, op in [("FSqrt", "fsqrt"), ("FAbs", "fabs"), ("FNeg", "fneg"), ("FMov", "fmov"),
                     ("FrintZ", "frintz"), ("FrintA", "frinta"), ("FrintM", "frintm"), ("FrintP", "frintp")]:
        sweep(form, [D, D], ["d1", "d2"], lambda d, n, op=op: "%s %s, %s" % (op, d, n))
    sweep("FCmp", [D, D], ["d1", "d2"], lambda n, m: "fcmp %s, %s" % (n, m))
    sweep("FCmpZero", [D], ["d1"], lambda n: "fcmp %s, #0.0" % n)
    sweep("FCsel", [D, D, D, CONDS], ["d1", "d2", "d3", "lt"],
          lambda d, n, m, c: "fcsel %s, %s, %s, %s" % (d, n, m, c))
    sweep("FMovToX", [X_ZR, D], ["x1", "d2"], lambda x, d: "fmov %s, %s" % (x, d))
    sweep("FMovFromX", [D, X_ZR], ["d1", "x2"], lambda d, x: "fmov %s, %s" % (d, x))
    sweep("FCvtzsW", [W_ZR, D], ["w1", "d2"], lambda w, d: "fcvtzs %s, %s" % (w, d))
    sweep("ScvtfW", [D, W_ZR], ["d1", "w2"], lambda d, w: "scvtf %s, %s" % (d, w))

    # Integer.
    values = [0, 1, 0xFFFF, 0x10000, 0x12345678, 0xFFFFFFFF, 0x100000000, 0x123456789ABCDEF0,
              0xFFFFFFFFFFFFFFFF, 0xFFFFFFFFFFFF1234, 0xFFFF1234FFFFFFFF, 0x1234FFFF5678FFFF,
              0xFFFF0000FFFF0000, 0x8000000000000000, 0x7FFFFFFFFFFFFFFF, 0x0000FFFF00000000]
    for v in values:
        case("MovImm", ["x5", "0x%x" % v], mov_imm("x5", v))
    for r in X_ZR:
        case("MovImm", [r, "0x%x" % 0x12345678], mov_imm(r, 0x12345678))
    for d, n in [(a, "x2") for a in X_SP] + [("x1", a) for a in X_SP] + [("xzr", "x3"), ("x4", "xzr")]:
        asm = "add %s, %s, #0" % (d, n) if "sp" in (d, n) else "orr %s, xzr, %s" % (d, n)
        case("MovReg", [d, n], asm)
    for form, op in [("AddImm", "add"), ("SubImm", "sub")]:
        sweep(form, [X_SP, X_SP], ["x1", "x2", 16], lambda d, n, i, op=op: arith_imm(op, d, n, i))
        for imm in [0, 1, 4095, 4096, 8192, 0xFFF000]:
            case(form, ["sp", "sp", imm], arith_imm(op, "sp", "sp", imm))
    for form, op in [("AddReg", "add"), ("SubReg", "sub")]:
        sweep(form, [X_ZR, X_ZR, X_ZR], ["x1", "x2", "x3"], lambda d, n, m, op=op: "%s %s, %s, %s" % (op, d, n, m))
    sweep("CmpImm", [X_SP], ["x1", 7], lambda n, i: "cmp %s, #%d" % (n, i))
    for imm in [0, 4095, 4096, 0xFFF000]:
        case("CmpImm", ["x3", imm], arith_imm("subs", "xzr", "x3", imm))
    sweep("CmpReg", [X_ZR, X_ZR], ["x1", "x2"], lambda n, m: "cmp %s, %s" % (n, m))
    sweep("CmpImmW", [W_ZR[:31]], ["w1", 7], lambda n, i: "cmp %s, #%d" % (n, i))
    for imm in [0, 255, 4095]:
        case("CmpImmW", ["w3", imm], "cmp w3, #%d" % imm)

    # Memory.
    offsets = [0, 8, 16, 32760, 32768, 4, 255, -8, -256, -264, 32761, 0x12345, -0x12345,
               0x7FFFFFFFFFFFFFF8, -0x8000000000000000]
    for form, op, tregs in [("LdrX", "ldr", X_ZR), ("StrX", "str", X_ZR), ("LdrD", "ldr", D), ("StrD", "str", D)]:
        sweep(form, [tregs, X_SP], [tregs[1], "x2", 8], lambda t, b, o, op=op: access(op, t, b, o))
        for o in offsets:
            case(form, [tregs[1], "x2", o], access(op, tregs[1], "x2", o))
            case(form, [tregs[3], "sp", o], access(op, tregs[3], "sp", o))
    for form, op, tregs in [("LdrXIndex", "ldr", X_ZR), ("StrXIndex", "str", X_ZR),
                            ("LdrDIndex", "ldr", D), ("StrDIndex", "str", D)]:
        def index_asm(t, b, i, s, op=op):
            return "%s %s, [%s, %s%s]" % (op, t, b, i, ", lsl #3" if s else "")
        sweep(form, [tregs, X_SP, X_ZR], [tregs[1], "x2", "x3", 1], index_asm)
        case(form, [tregs[1], "x2", "x3", 0], index_asm(tregs[1], "x2", "x3", 0))
    for form, op, regs in [("Ldp", "ldp", X_ZR), ("Stp", "stp", X_ZR), ("LdpD", "ldp", D), ("StpD", "stp", D)]:
        for mode in ["off", "pre", "post"]:
            for off in [-512, -16, 0, 16, 504]:
                case(form, [regs[1], regs[2], "sp", off, mode], pair_asm(op, regs[1], regs[2], "sp", off, mode))
        sweep(form, [regs, regs, X_SP], [regs[29], regs[30], "sp", -16, "off"],
              lambda a, b, base, off, mode, op=op: pair_asm(op, a, b, base, off, mode),
              lambda a, b, *rest, op=op: op == "stp" or a != b)  # one register loaded twice: unpredictable
    # The frame's own pair, and the constants after the code.
    case("Stp", ["x29", "x30", "sp", -16, "pre"], "stp x29, x30, [sp, #-16]!")
    case("Ldp", ["x29", "x30", "sp", 16, "post"], "ldp x29, x30, [sp], #16")
    for r in D:
        case("LdrDConst", [r], ["ldr %s, .+8" % r, ".word 0", ".quad 0x%x" % ONE])
    for r in X_ZR:
        case("LdrXConst", [r], ["ldr %s, .+8" % r, ".word 0", ".quad 0x%x" % ONE])

    # Branches: the target is delta bytes from the branch.
    far19 = (1 << 20) - 4
    for delta in [0, 4, 8, -4, -8, far19, -(1 << 20), 0x12340]:
        case("B", [delta], "b " + rel(delta))
        case("Bl", [delta], "bl " + rel(delta))
        case("BCond", ["ne", delta], "b.ne " + rel(delta))
        case("Cbz", ["x3", delta], "cbz x3, " + rel(delta))
        case("Cbnz", ["x3", delta], "cbnz x3, " + rel(delta))
    for c in CONDS:
        case("BCond", [c, 8], "b.%s .+8" % c)
    for r in X_ZR:
        case("Cbz", [r, 8], "cbz %s, .+8" % r)
        case("Cbnz", [r, -8], "cbnz %s, .-8" % r)
    for r in X:
        case("Br", [r], "br " + r)
        case("Blr", [r], "blr " + r)
        case("Ret", [r], "ret " + r)
    case("Nop", [], "nop")


def assemble():
    with tempfile.TemporaryDirectory() as tmp:
        src = os.path.join(tmp, "cases.s")
        obj = os.path.join(tmp, "cases.o")
        with open(src, "w") as f:
            for i, (_, asm) in enumerate(cases):
                f.write('.section .text.c%d,"ax",@progbits\n' % i)
                f.write("".join("\t%s\n" % line for line in asm))
        subprocess.run([AS, "-o", obj, src], check=True)
        dump = subprocess.run([OBJDUMP, "-d", "-z", obj], check=True, capture_output=True, text=True).stdout
    words = {}
    current = None
    for line in dump.splitlines():
        m = re.match(r"Disassembly of section \.text\.c(\d+):", line)
        if m:
            current = int(m.group(1))
            words[current] = []
            continue
        m = re.match(r"\s*[0-9a-f]+:\s+([0-9a-f]{8})\s", line)
        if m and current is not None:
            words[current].append(int(m.group(1), 16))
    return words


def main():
    build()
    words = assemble()
    with open(OUT, "w") as f:
        f.write("# AArch64 encodings the emitter must write, one emitter call a line, then\n"
                "# its bytes. Written by scripts/a64_golden.py from the GNU cross assembler's\n"
                "# output; regenerate instead of editing. Branch forms give the target as\n"
                "# the distance in bytes from the branch; constant loads address the entry\n"
                "# 1.0 and list the filler word and the constants.\n")
        for i, (text, _) in enumerate(cases):
            if not words.get(i):
                sys.exit("no bytes for case %d: %s" % (i, text))
            data = b"".join(w.to_bytes(4, "little") for w in words[i])
            f.write("%s | %s\n" % (text, " ".join("%02x" % b for b in data)))
    print("%d cases written to %s" % (len(cases), os.path.relpath(OUT, ROOT)))


if __name__ == "__main__":
    main()
