// Writing a document.
#ifndef LUM_JSON_WRITER_H
#define LUM_JSON_WRITER_H

#include <string>

#include "LumJson.h"

namespace LumJson::detail {

std::string WriteStyled(const Rep& root);
std::string WriteCompact(const Rep& root);

}  // namespace LumJson::detail

#endif  // LUM_JSON_WRITER_H
