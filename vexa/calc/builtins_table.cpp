#include "vexa/calc/builtins.h"

#include <vector>

#include "vexa/calc/builtins_impl.h"

namespace vexa_builtins {

namespace {

// The names of the table of operations come first, then the names without a
// computed value. Insertion order matters only for the duplicates: DXYZ and
// VXYZ come twice and the first row wins. "add" is reserved without an
// implementation.
const NameRow kRows[] = {
#define VEXA_NAME_ROW(Name, Text, ...) {L"" Text, Implementation(vexa_ops::k##Name)},
    VEXA_OPERATIONS(VEXA_NAME_ROW)
#undef VEXA_NAME_ROW

    {L"sin", Implementation(vexa_ops::kSin)},
    {L"cos", Implementation(vexa_ops::kCos)},
    {L"add", nullptr},

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


    {L"AKISPL", alwaysFails},
    {L"CUBSPL", alwaysFails},
    {L"CURVE", placeholder1to4},
    {L"INTERP", placeholder1to4},


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

// Operators and the program's own instructions have no name: left out.
const std::vector<NameRow>& Named() {
    static const std::vector<NameRow> rows = [] {
        std::vector<NameRow> named;
        for (const NameRow& row : kRows) {
            if (row.name[0] != L'\0') named.push_back(row);
        }
        return named;
    }();
    return rows;
}

}  // namespace

const NameRow* Table() {
    return Named().data();
}

std::size_t TableSize() {
    return Named().size();
}

}  // namespace vexa_builtins
