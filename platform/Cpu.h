#pragma once

namespace lumenar::platform {

/// True when the processor answers CPUID and function 1 reports the MMX instruction set (EDX bit 23).
/// False on processors without CPUID and on non-x86 machines. Any thread; cheap after the first call.
bool HasMmx();

/// True when the processor can run the SSE2 instructions that carry the fast photo transform
/// (CPUID function 1, EDX bit 26). False on non-x86 machines. Any thread.
bool HasSse2();

/// True when the processor and the operating system support AVX2 (CPUID function 7 EBX bit 5, with
/// the AVX register state enabled through XSAVE). False on non-x86 machines. Any thread.
bool HasAvx2();

} // namespace lumenar::platform
