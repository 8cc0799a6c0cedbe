// Packs one file or directory in a process that has nothing else to do.
//
//   LumBenchPack file|directory PATH
//
// makes PATH.tar.gz.

#include <LumFileSys.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: LumBenchPack file|directory PATH\n");
    return 2;
  }
  const int result = argv[1] == std::string("file")
                         ? LumCompressAndDeCompress::CompressFile(argv[2])
                         : LumCompressAndDeCompress::CompressFilePath(argv[2]);
  return result == 0 ? 0 : 1;
}
