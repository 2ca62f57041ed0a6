#include "vexa/calc/builtins.h"
#include "vexa/calc/builtins_impl.h"

namespace vexa_builtins {

namespace {

// Insertion order matters only for the duplicates: DXYZ and VXYZ come twice
// and the first row wins. "add" is reserved without an implementation.
const Row kRows[] = {
    {L"sin", Sin},
    {L"cos", Cos},
    {L"add", nullptr},

    {L"ABS", Abs},
    {L"LOG10", Log10},
    {L"ACOS", Acos},
    {L"MAX", Max},
    {L"AINT", Aint},
    {L"ANINT", Anint},
    {L"MIN", Min},
    {L"MOD", Mod},
    {L"ASIN", Asin},
    {L"SIGN", Sign},
    {L"ATAN", Atan},
    {L"SIN", Sin},
    {L"ATAN2", Atan2},
    {L"SINH", Sinh},
    {L"COS", Cos},
    {L"SQRT", Sqrt},
    {L"COSH", Cosh},
    {L"TAN", Tan},
    {L"EXP", Exp},
    {L"TANH", Tanh},
    {L"LOG", Log},

    {L"AX", placeholder1to2},
    {L"AY", placeholder1to2},
    {L"AZ", placeholder1to2},
    {L"DM", placeholder1to2},
    {L"DX", placeholder1to3},
    {L"DXYZ", placeholder1to3},
    {L"DY", placeholder1to3},
    {L"DZ", placeholder1to3},
    {L"INCANG", placeholder1to3},
    {L"PHI", placeholder1to2},
    {L"PITCH", placeholder1to2},
    {L"PSI", placeholder1to2},
    {L"ROLL", placeholder1to2},
    {L"THETA", placeholder1to2},
    {L"YAW", placeholder1to2},
    {L"VM", placeholder1to3},
    {L"VR", placeholder1to3},
    {L"VX", placeholder1to4},
    {L"VXYZ", placeholder1to4},
    {L"VY", placeholder1to4},
    {L"VZ", placeholder1to4},
    {L"WM", placeholder1to2},
    {L"WX", placeholder1to3},
    {L"WY", placeholder1to3},
    {L"WZ", placeholder1to3},
    {L"ACCM", placeholder1to3},
    {L"ACCX", placeholder1to4},
    {L"ACCY", placeholder1to4},
    {L"ACCZ", placeholder1to4},
    {L"WDTM", placeholder1to3},
    {L"WDTX", placeholder1to4},
    {L"WDTY", placeholder1to4},
    {L"WDTZ", placeholder1to4},
    {L"FM", placeholder1to2},
    {L"FX", placeholder1to3},
    {L"FY", placeholder1to3},
    {L"FZ", placeholder1to3},
    {L"TM", placeholder1to2},
    {L"TX", placeholder1to3},
    {L"TY", placeholder1to3},
    {L"TZ", placeholder1to3},

    {L"BUSH", placeholder1to4},
    {L"GFORCE", placeholder1to4},
    {L"SFORCE", placeholder1to4},
    {L"SPDP", placeholder1to4},
    {L"CVCV", placeholder1to4},
    {L"JOINT", placeholder1to4},
    {L"JPRIM", placeholder1to4},
    {L"MOTION", placeholder1to4},
    {L"PTCV", placeholder1to4},

    {L"IF", If},

    {L"AKISPL", alwaysFails},
    {L"CUBSPL", alwaysFails},
    {L"CURVE", placeholder1to4},
    {L"INTERP", placeholder1to4},

    {L"BISTOP", Bistop},
    {L"CHEBY", Cheby},
    {L"FORCOS", Forcos},
    {L"FORSIN", Forsin},
    {L"HAVSIN", Havsin},
    {L"IMPACT", Impact},
    {L"POLY", Poly},
    {L"SHF", Shf},
    {L"STEP", Step},
    {L"STEP5", Step5},
    {L"SWEEP", Sweep},

    {L"ACCXYZ", placeholder1to4},
    {L"DXYZ", placeholder1to3},
    {L"FXYZ", placeholder1to3},
    {L"TXYZ", placeholder1to3},
    {L"UVX", placeholder1to2},
    {L"UVY", placeholder1to2},
    {L"UVZ", placeholder1to2},
    {L"VXYZ", placeholder1to4},
    {L"WXYZ", placeholder1to3},
    {L"WDTXYZ", placeholder1to4},
    {L"UV", placeholder1},
    {L"MAG", Mag},
};

}  // namespace

const Row* Table() {
    return kRows;
}

std::size_t TableSize() {
    return sizeof(kRows) / sizeof(kRows[0]);
}

}  // namespace vexa_builtins
