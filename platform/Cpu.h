#pragma once

namespace lumenar::platform {

/// The instruction sets the SIMD paths may use, decided once for the whole process at the first
/// question (any thread; later questions are free). Every SIMD path asks here and nowhere else, and
/// each has a portable twin that gives the same bytes: with LUMENAR_SIMD=portable in the environment
/// (read at that first question) every path takes its twin, for comparing them or for a processor
/// whose answers are wrong.
struct SimdSupport
{
    bool mmx = false;  ///< CPUID function 1, EDX bit 23: what the player requires to open its window.
    bool sse2 = false; ///< CPUID function 1, EDX bit 26: the photo transform, colour rows, cross-fade.
    bool avx2 = false; ///< CPUID function 7 EBX bit 5 with the AVX registers saved by the system.
    /// LUMENAR_PORTABLE_IDCT=1: photos decode through the portable transform, as on a processor without
    /// MMX. Unlike the SIMD twins this changes the picture (the two transforms round differently).
    bool portableIdct = false;
};

/// The processor's answers, probed once; all false on non-x86 machines and under LUMENAR_SIMD=portable
/// (except `mmx`, which stays the processor's, since it only decides whether the player may run).
const SimdSupport& Simd();

/// Simd().mmx: whether the player may open its window.
bool HasMmx();

} // namespace lumenar::platform
