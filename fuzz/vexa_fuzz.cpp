// libFuzzer entry: every input goes through the whole host interface; a
// broken interface promise aborts with its description, memory errors and
// leaks are reported by the sanitizers the target is built with.
#include <cstdio>
#include <cstdlib>

#include "fuzz/one_input.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    vexa_fuzz::Setup();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string problem = vexa_fuzz::RunOneInput(data, size);
    if (!problem.empty()) {
        std::fprintf(stderr, "vexa_fuzz: %s\n", problem.c_str());
        std::abort();
    }
    return 0;
}
