// A stdio stream that is closed with its owner.

#ifndef LUM_FILE_H
#define LUM_FILE_H

#include <cstdio>
#include <memory>

namespace lumhttp {

struct FileClose {
  void operator()(FILE* file) const { (void)std::fclose(file); }
};
using File = std::unique_ptr<FILE, FileClose>;

}  // namespace lumhttp

#endif  // LUM_FILE_H
