#ifndef VEXA_TOOLS_WIDE_H
#define VEXA_TOOLS_WIDE_H

#include <string>

namespace vexa_cli {

// UTF-8 <-> wide text without the C library's multibyte routines, whose
// behaviour depends on the locale the program happens to run in.
std::wstring ToWide(const std::string& utf8);
std::string ToUtf8(const std::wstring& wide);

// ASCII-only case folding, the way the parser compares parameter names.
bool SameNoCase(const std::wstring& a, const std::wstring& b);
std::wstring UpperAscii(const std::wstring& s);

}  // namespace vexa_cli

#endif
