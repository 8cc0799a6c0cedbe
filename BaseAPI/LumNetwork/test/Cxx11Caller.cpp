// The public header as a C++11 translation unit uses it; linked into the tests.

#include "LumNet.h"

#if __cplusplus >= 201402L
#error "this file is to be compiled as C++11"
#endif

bool Cxx11IsAddress(const std::string& text);

bool Cxx11IsAddress(const std::string& text) {
  return LumNet::IsIPv4Address(text) || LumNet::IsIPv6Address(text);
}
