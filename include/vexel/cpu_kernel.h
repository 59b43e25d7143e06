// Which SIMD level the pixel kernels of the player and its modules run at: the best this
// processor supports, or a lower one forced with the environment variable VEXEL_CPU
// (plain, sse41, avx2 or avx512) to exercise the other kernels. A forced level above what the
// processor runs, or an unknown value, is ignored.
//
// Threads: any; the choice is made once per library that includes this header.
#pragma once

#include <cstdlib>
#include <cstring>

namespace vexel {

enum class CpuKernel { kPlain, kSse41, kAvx2, kAvx512 };

inline const char* CpuKernelName(CpuKernel level) {
    switch (level) {
        case CpuKernel::kSse41:
            return "sse41";
        case CpuKernel::kAvx2:
            return "avx2";
        case CpuKernel::kAvx512:
            return "avx512";
        default:
            return "plain";
    }
}

// The best level this processor runs. The AVX-512 kernels use the F and BW subsets.
inline CpuKernel SupportedCpuKernel() {
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw"))
        return CpuKernel::kAvx512;
    if (__builtin_cpu_supports("avx2")) return CpuKernel::kAvx2;
    if (__builtin_cpu_supports("sse4.1")) return CpuKernel::kSse41;
    return CpuKernel::kPlain;
}

// The level to run: SupportedCpuKernel, lowered by VEXEL_CPU. Read once.
inline CpuKernel ChosenCpuKernel() {
    static const CpuKernel chosen = [] {
        const CpuKernel supported = SupportedCpuKernel();
        const char* forced = std::getenv("VEXEL_CPU");
        if (forced == nullptr) return supported;
        for (int i = 0; i <= static_cast<int>(CpuKernel::kAvx512); ++i) {
            const auto level = static_cast<CpuKernel>(i);
            if (std::strcmp(forced, CpuKernelName(level)) == 0 && level <= supported) return level;
        }
        return supported;
    }();
    return chosen;
}

}  // namespace vexel
