// Appending documents to a file of JSON lines.
#include "Reports.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "Text.h"

namespace {

constexpr char kFileName[] = "reports.jsonl";
constexpr std::size_t kShown = 200;  // bytes of a document that the page shows

// One line for any kind of value. JsonValueToString() writes neither a bare string as JSON nor
// null.
std::string Compact(const LumJson::Value& document) {
  if (!document.IsString() && !document.IsNull()) {
    return document.JsonValueToString();
  }
  std::string styled = document.ToStyledString();
  styled.pop_back();
  return styled;
}

// The first bytes of a text, cut between two characters.
std::string Start(const std::string& text) {
  if (text.size() <= kShown) {
    return text;
  }
  std::size_t end = kShown;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
    --end;
  }
  return text.substr(0, end) + "...";
}

}  // namespace

Reports::Reports(const RootDir& root)
    : m_file(::openat(root.Get(), kFileName, O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC,
                      0666)) {
  const auto failed = [&] {
    return std::runtime_error("cannot use '" + root.Path() + "/" + kFileName +
                              "': " + std::generic_category().message(errno));
  };
  if (!m_file) {
    throw failed();
  }
  std::vector<char> piece(65536);
  char last = '\n';
  for (;;) {
    const ssize_t count =
        ::pread(m_file.Get(), piece.data(), piece.size(), static_cast<off_t>(m_size));
    if (count < 0) {
      throw failed();
    }
    if (count == 0) {
      break;
    }
    m_size += static_cast<std::uint64_t>(count);
    m_documents +=
        static_cast<std::uint64_t>(std::count(piece.begin(), piece.begin() + count, '\n'));
    last = piece[static_cast<std::size_t>(count) - 1];
  }
  // A line that somebody left open must not swallow the next document.
  if (last != '\n') {
    if (!WriteAll(m_file.Get(), "\n", 1)) {
      throw failed();
    }
    ++m_size;
    ++m_documents;
  }
}

Reply Reports::Store(const Call& call, const LumJson::Value& document) {
  const auto status = call.QueryValue("status");
  if (status && *status != "200" && *status != "204") {
    return Problem(400, "'status' in the query is neither 200 nor 204");
  }
  const std::string line = Compact(document) + "\n";
  std::uint64_t stored = 0;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    // One write, so that a reader of the file sees whole lines only.
    const ssize_t written = ::write(m_file.Get(), line.data(), line.size());
    if (written != static_cast<ssize_t>(line.size())) {
      const std::string reason = written < 0 ? std::generic_category().message(errno)
                                             : "the file system takes no more of it";
      if (written > 0 && ::ftruncate(m_file.Get(), static_cast<off_t>(m_size)) != 0) {
        return Problem(500, "cannot take back half a report: " + reason);
      }
      return Problem(507, "cannot store the report: " + reason);
    }
    m_size += line.size();
    stored = ++m_documents;
  }
  LumJson::Value answer;
  answer["stored"] = stored;
  Reply reply = JsonReply(answer);
  if (status == "204") {
    reply.status = 204;
    reply.body.clear();
  }
  reply.note = {Note::Kind::kReport, Start(line.substr(0, line.size() - 1))};
  return reply;
}
