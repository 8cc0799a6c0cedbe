// Takes a request's head apart.

#include "wire/WireRequest.h"

#include <strings.h>

namespace lumtest {

namespace {

std::string Trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos) {
    return "";
  }
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

}  // namespace

std::vector<std::string> WireRequest::HeaderValues(const std::string& name) const {
  std::vector<std::string> values;
  for (const std::string& line : headerLines) {
    if (line.size() > name.size() && line[name.size()] == ':' &&
        strncasecmp(line.c_str(), name.c_str(), name.size()) == 0) {
      values.push_back(Trimmed(line.substr(name.size() + 1)));
    }
  }
  return values;
}

std::string WireRequest::Header(const std::string& name) const {
  const std::vector<std::string> values = HeaderValues(name);
  return values.empty() ? "" : values.front();
}

bool WireRequest::ParseHead() {
  const std::size_t lineEnd = head.find("\r\n");
  const std::string line = head.substr(0, lineEnd);
  const std::size_t firstBlank = line.find(' ');
  const std::size_t lastBlank = line.rfind(' ');
  if (lineEnd == std::string::npos || firstBlank == std::string::npos || firstBlank == 0 ||
      line.compare(lastBlank + 1, 7, "HTTP/1.") != 0) {
    return false;
  }
  method = line.substr(0, firstBlank);
  // A target with blanks in it stays whole: everything between the first and the last blank.
  target = firstBlank == lastBlank ? "" : line.substr(firstBlank + 1, lastBlank - firstBlank - 1);
  version = line.substr(lastBlank + 1);
  for (std::size_t start = lineEnd + 2; start < head.size();) {
    const std::size_t end = head.find("\r\n", start);
    if (end == std::string::npos || end == start) {
      break;
    }
    headerLines.push_back(head.substr(start, end - start));
    start = end + 2;
  }
  return true;
}

}  // namespace lumtest
