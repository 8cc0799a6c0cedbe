// The public header as a C++11 translation unit uses it; linked into the tests.

#include "LumFileSys.h"

#if __cplusplus >= 201402L
#error "this file is to be compiled as C++11"
#endif

int Cxx11Compress(const std::string& text, char* destination, int length);

int Cxx11Compress(const std::string& text, char* destination, int length) {
  return LumCompressAndDeCompress::GzipCompress(text.data(), static_cast<int>(text.size()),
                                                destination, length);
}
