// Linked into the Windows test programs: their output is read by CTest and
// the scripts of the suite, which split lines at LF; the C runtime's text
// mode would end every line with CR LF (and test names with a CR).
#include <cstdio>

#include <fcntl.h>
#include <io.h>

namespace {

struct BinaryOutput {
    BinaryOutput()
    {
        _setmode(_fileno(stdout), _O_BINARY);
        _setmode(_fileno(stderr), _O_BINARY);
    }
} binary_output;

}  // namespace
