#ifndef VEXA_CORE_UTF8_H
#define VEXA_CORE_UTF8_H

#include <cstddef>
#include <string>

#include "vexa/core/export.h"

// UTF-8 for the library's wide texts, without the C library's multibyte
// routines, whose behaviour depends on the locale a host happens to set.
namespace vexa {

// Code units that are no Unicode scalar value become U+FFFD.
VEXA_API std::string ToUtf8(const std::wstring& wide);

// Ill-formed sequences become U+FFFD, one for each maximal start of a
// well-formed sequence, else one per byte (Unicode's "maximal subpart"
// practice): overlong forms, surrogates, values above U+10FFFF, truncated
// sequences and stray continuation bytes all do.
VEXA_API std::wstring FromUtf8(const std::string& utf8);

// The byte offset in utf8 of the character FromUtf8(utf8)[chars] (the size
// of utf8 past its end): positions in a wide text, told in its UTF-8 bytes.
VEXA_API std::size_t Utf8Offset(const std::string& utf8, std::size_t chars);

}  // namespace vexa

#endif
