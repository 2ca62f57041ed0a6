#ifndef VEXA_CALC_BUILTINS_H
#define VEXA_CALC_BUILTINS_H

#include <cstddef>

#include "vexa/calc/buidin_function.h"

// The built-in table, internal to the library: rows in insertion order.
namespace vexa_builtins {

struct NameRow {
    const wchar_t* name;
    BuildInFunctionPtr function;
};

// The rows of the table and their number (102; DXYZ and VXYZ appear twice).
// Made on the first call: call once before threads share the registry.
const NameRow* Table();
std::size_t TableSize();

}  // namespace vexa_builtins

#endif
