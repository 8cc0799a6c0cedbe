// Reading a document.
#ifndef LUM_JSON_READER_H
#define LUM_JSON_READER_H

#include <string_view>

#include "LumJson.h"

namespace LumJson::detail {

// Makes the tree for `text` in `root`, which is null. When the result is false, or std::bad_alloc
// comes out of it, `root` still is.
bool ReadDocument(std::string_view text, Rep& root);

}  // namespace LumJson::detail

#endif  // LUM_JSON_READER_H
