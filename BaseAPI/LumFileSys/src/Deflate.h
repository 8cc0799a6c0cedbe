// ISA-L's two compression calls, each followed by clearing the vector state that it leaves.

#ifndef LUM_FILE_SYS_DEFLATE_H
#define LUM_FILE_SYS_DEFLATE_H

#include <isa-l/igzip_lib.h>

#ifdef __x86_64__
#include <immintrin.h>
#endif

namespace lumfilesys {

#ifdef __x86_64__
__attribute__((target("avx"))) inline void ClearUpperHalves() {
  _mm256_zeroupper();
}
#endif

// ISA-L's vector code on x86-64 returns with the upper halves of the vector registers in use. On
// Intel's processors each SSE instruction of the thread then has to preserve them, and code with
// many of those runs several times slower (Intel 64 and IA-32 Architectures Optimization Reference
// Manual, "Mixing AVX Code with SSE Code").
inline void LeaveVectorCode() {
#ifdef __x86_64__
  if (__builtin_cpu_supports("avx")) {
    ClearUpperHalves();
  }
#endif
}

inline int Deflate(isal_zstream& stream) {
  const int result = isal_deflate(&stream);
  LeaveVectorCode();
  return result;
}

inline int DeflateAtOnce(isal_zstream& stream) {
  const int result = isal_deflate_stateless(&stream);
  LeaveVectorCode();
  return result;
}

}  // namespace lumfilesys

#endif  // LUM_FILE_SYS_DEFLATE_H
