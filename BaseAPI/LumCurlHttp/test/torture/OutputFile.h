// Standard output or standard error, led into memory for as long as the object lives.

#ifndef LUM_TEST_TORTURE_OUTPUTFILE_H
#define LUM_TEST_TORTURE_OUTPUTFILE_H

#include <string>

namespace lumtest {

// One thread's. Throws std::runtime_error. Unlike a capture per test it is emptied again and again:
// Take costs a few system calls.
class OutputFile {
 public:
  explicit OutputFile(int descriptor);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // What has been written since the last time.
  std::string Take();

 private:
  const int m_descriptor;
  int m_saved;
};

}  // namespace lumtest

#endif  // LUM_TEST_TORTURE_OUTPUTFILE_H
