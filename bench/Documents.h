// Documents of a wanted size, the same ones in every run.
#ifndef LUM_BENCH_DOCUMENTS_H
#define LUM_BENCH_DOCUMENTS_H

#include <cstddef>
#include <string>

namespace lumbench {

enum class Shape {
  kRecords,  // what a back end reports: objects of some ten members of all kinds
  kText,     // messages: longer strings, some with characters that are escaped or beyond ASCII
  kEscapes,  // the same with escapes in nearly every string
  kNumbers,  // measurements: doubles of up to 17 digits, and integers
};

// A document of about `size` bytes (of one item at least) without superfluous blanks.
std::string MakeDocument(Shape shape, std::size_t size);

// One that has about `size` bytes when LumJson writes it with its blanks and line ends.
std::string MakeDocumentToWrite(Shape shape, std::size_t size);

}  // namespace lumbench

#endif  // LUM_BENCH_DOCUMENTS_H
