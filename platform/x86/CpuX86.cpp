#include "platform/Cpu.h"

#include <cstdlib>
#include <string_view>

#if defined(__i386__) || defined(__x86_64__)
#include <cpuid.h>
#endif

namespace lumenar::platform {

namespace {

unsigned Function1Edx()
{
#if defined(__i386__) || defined(__x86_64__)
    // __get_cpuid checks the highest supported function first; on 32-bit builds it also tests
    // whether the ID flag of EFLAGS can be toggled, so processors without CPUID answer 0.
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) == 0)
        return 0;
    return edx;
#else
    return 0;
#endif
}

bool ProbeAvx2()
{
#if defined(__i386__) || defined(__x86_64__)
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) == 0)
        return false;
    const bool osxsave = (ecx >> 27) & 1u;
    const bool avx = (ecx >> 28) & 1u;
    if (!osxsave || !avx)
        return false;
    // XCR0 bits 1 and 2: the operating system saves the SSE and AVX registers.
    unsigned xcrLow = 0, xcrHigh = 0;
    __asm__ volatile("xgetbv" : "=a"(xcrLow), "=d"(xcrHigh) : "c"(0));
    if ((xcrLow & 6u) != 6u)
        return false;
    if (__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) == 0)
        return false;
    return ((ebx >> 5) & 1u) != 0;
#else
    return false;
#endif
}

} // namespace

const SimdSupport& Simd()
{
    static const SimdSupport support = [] {
        SimdSupport made;
        const unsigned edx = Function1Edx();
        made.mmx = (edx >> 23) & 1u;
        const char* idct = std::getenv("LUMENAR_PORTABLE_IDCT");
        made.portableIdct = idct != nullptr && std::string_view(idct) == "1";
        const char* choice = std::getenv("LUMENAR_SIMD");
        if (choice != nullptr && std::string_view(choice) == "portable")
            return made;
        made.sse2 = (edx >> 26) & 1u;
        made.avx2 = made.sse2 && ProbeAvx2();
        return made;
    }();
    return support;
}

bool HasMmx()
{
    return Simd().mmx;
}

} // namespace lumenar::platform
