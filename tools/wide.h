#ifndef VEXA_TOOLS_WIDE_H
#define VEXA_TOOLS_WIDE_H

#include <string>

#include "vexa/core/utf8.h"

namespace vexa_cli {

// The command line speaks UTF-8, the library wide text.
using vexa::ToUtf8;
inline std::wstring ToWide(const std::string& utf8)
{
    return vexa::FromUtf8(utf8);
}

// ASCII-only case folding, the way the parser compares parameter names.
bool SameNoCase(const std::wstring& a, const std::wstring& b);

}  // namespace vexa_cli

#endif
