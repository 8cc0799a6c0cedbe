// Receiving and sending of objects and files.
#include "Objects.h"

#include <LumSafeText.h>

#include <fcntl.h>
#include <openssl/crypto.h>
#include <sys/stat.h>

#include <algorithm>
#include <boost/algorithm/string/join.hpp>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <limits>
#include <map>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "Signature.h"
#include "Text.h"

namespace {

constexpr std::size_t kReadPiece = 131072;  // bytes taken from the file system at once
constexpr char kUnfinished[] = ".upload-";  // begins the names of objects on their way in
constexpr char kLinked[] = "symbolic links are not followed";

bool IsUnfinished(const std::string& name) {
  return name.starts_with(kUnfinished);
}

std::string ContentType(const std::string& name) {
  static const std::map<std::string, std::string> kTypes = {{".json", "application/json"},
                                                            {".txt", "text/plain; charset=utf-8"},
                                                            {".zip", "application/zip"},
                                                            {".gz", "application/gzip"},
                                                            {".mp4", "video/mp4"}};
  const std::size_t dot = name.rfind('.');
  const auto found = dot == std::string::npos ? kTypes.end() : kTypes.find(name.substr(dot));
  return found == kTypes.end() ? "application/octet-stream" : found->second;
}

Reply CannotRead(int error) {
  static const std::map<int, std::pair<int, const char*>> kReasons = {
      {EINVAL, {400, "the path holds an empty name, '.', '..' or a name that is too long"}},
      {ELOOP, {403, kLinked}},
      {EACCES, {403, "Permission denied"}},
      {EPERM, {403, "Operation not permitted"}},
      {ENOENT, {404, "no such file"}},
      {ENOTDIR, {404, "no such file"}},
      {EISDIR, {404, "not a file"}}};
  const auto found = kReasons.find(error);
  return found == kReasons.end() ? Problem(500, std::generic_category().message(error))
                                 : Problem(found->second.first, found->second.second);
}

Reply CannotStore(int error) {
  const std::string reason = "cannot store the object: " + std::generic_category().message(error);
  static const std::map<int, int> kStatuses = {{ELOOP, 403},  {EISDIR, 409},    {ENOTDIR, 409},
                                               {EEXIST, 409}, {ENOTEMPTY, 409}, {ENOSPC, 507},
                                               {EDQUOT, 507}, {EFBIG, 507}};
  const auto found = kStatuses.find(error);
  return Problem(found == kStatuses.end() ? 500 : found->second, error == ELOOP ? kLinked : reason);
}

// A file on its way out.
class FileContent final : public BodySource {
 public:
  explicit FileContent(OpenedFile opened) : m_opened(std::move(opened)) {}

  // A file that has become shorter ends early, one that has grown at the length announced.
  Task<std::string_view> Next() override {
    m_piece.resize(kReadPiece);
    const std::size_t most =
        static_cast<std::size_t>(std::min<std::uint64_t>(m_opened.size - m_sent, m_piece.size()));
    const ssize_t count =
        most == 0 ? 0
                  : ::pread(m_opened.file.Get(), m_piece.data(), most, static_cast<off_t>(m_sent));
    if (count <= 0 && most > 0) {
      throw std::runtime_error("a file has become shorter while it was sent");
    }
    m_sent += static_cast<std::uint64_t>(count);
    co_return std::string_view(m_piece.data(), static_cast<std::size_t>(count));
  }

 private:
  const OpenedFile m_opened;
  std::uint64_t m_sent = 0;
  std::vector<char> m_piece;
};

// A new file in a directory under a name of its own, which goes away unless it is moved.
class UnfinishedFile {
 public:
  explicit UnfinishedFile(int directory) : m_directory(directory) {
    m_name = kUnfinished + RandomHex(8);
    m_file = FileDescriptor(
        ::openat(directory, m_name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    m_error = m_file ? 0 : errno;
  }
  UnfinishedFile(const UnfinishedFile&) = delete;
  UnfinishedFile& operator=(const UnfinishedFile&) = delete;
  ~UnfinishedFile() {
    if (m_file && !m_moved) {
      ::unlinkat(m_directory, m_name.c_str(), 0);
    }
  }

  // errno of the first step that failed, or 0.
  int Error() const { return m_error; }

  bool Write(std::string_view piece) {
    if (m_error == 0 && !WriteAll(m_file.Get(), piece.data(), piece.size())) {
      m_error = errno;
    }
    return m_error == 0;
  }

  // Gives the file its own name, instead of any file that has it.
  bool MoveTo(int directory, const std::string& name) {
    if (m_error == 0 && ::renameat(m_directory, m_name.c_str(), directory, name.c_str()) != 0) {
      m_error = errno;
    }
    m_moved = m_error == 0;
    return m_moved;
  }

 private:
  const int m_directory;
  std::string m_name;
  FileDescriptor m_file;
  int m_error = 0;
  bool m_moved = false;
};

}  // namespace

Reply SendFile(const RootDir& root, const Call& call) {
  const std::vector<std::string> names = call.NamesBehindFirst();
  OpenedFile opened = root.Open(names);
  if (opened.error != 0) {
    return CannotRead(opened.error);
  }
  Reply reply;
  reply.contentType = ContentType(names.back());
  reply.length = opened.size;
  reply.stream = std::make_shared<FileContent>(std::move(opened));
  reply.note.kind = "download";
  reply.note.object = boost::algorithm::join(names, "/");
  reply.headers = {{"X-Content-Type-Options", "nosniff"}};
  return reply;
}

std::string CheckSignature(const std::string& key, const Call& call, std::time_t now) {
  const std::string* authorization = call.Header("Authorization");
  const std::string* date = call.Header("Date");
  if (authorization == nullptr || authorization->empty()) {
    return "no Authorization";
  }
  if (date == nullptr || date->empty()) {
    return "no Date";
  }
  const auto time = ParseHttpDate(*date);
  if (!time) {
    return "Date is no HTTP date";
  }
  if (std::llabs(static_cast<long long>(*time) - static_cast<long long>(now)) > kDateWindow) {
    return "Date is more than 15 minutes from now";
  }
  if (!authorization->starts_with(kSignatureScheme)) {
    return "Authorization does not begin with 'LUM '";
  }
  const std::string expected = Signature(key, call.method, *date, call.path);
  // The time of the comparison must not tell how many characters were right.
  if (authorization->size() != expected.size() ||
      CRYPTO_memcmp(authorization->data(), expected.data(), expected.size()) != 0) {
    return "the signature does not match";
  }
  return {};
}

Objects::Objects(const RootDir& root, std::string signKey, std::optional<std::uint64_t> maxBody)
    : m_directory(root.Path() + "/objects"),
      m_signKey(std::move(signKey)),
      m_limit(maxBody.value_or(std::numeric_limits<std::uint64_t>::max())) {
  for (const auto& entry : std::filesystem::directory_iterator(m_directory.Path())) {
    if (IsUnfinished(entry.path().filename())) {
      std::filesystem::remove(entry.path());
    }
  }
}

Task<Reply> Objects::Put(const Call& call, BodySource& body) const {
  if (!m_signKey.empty()) {
    const std::string problem = CheckSignature(m_signKey, call, std::time(nullptr));
    if (!problem.empty()) {
      co_return Problem(403, problem);
    }
  }
  const std::vector<std::string> names = call.NamesBehindFirst();
  if (names.empty() || IsUnfinished(names[0]) ||
      !std::all_of(names.begin(), names.end(), RootDir::IsPlainName)) {
    co_return Problem(400, "the path names no object");
  }
  Reply tooLong = Problem(413, "the object is longer than " + std::to_string(m_limit) + " bytes");
  if (call.contentLength.value_or(0) > m_limit) {
    co_return tooLong;
  }

  UnfinishedFile file(m_directory.Get());
  std::uint64_t bytes = 0;
  for (bool more = true; more;) {
    const std::string_view piece = co_await body.Next();
    if (piece.size() > m_limit - bytes) {
      co_return tooLong;
    }
    bytes += piece.size();
    more = !piece.empty() && file.Write(piece);
  }
  if (file.Error() != 0) {
    co_return CannotStore(file.Error());
  }
  if (!body.IsWhole()) {
    co_return Problem(400, "the upload ends after " + std::to_string(bytes) + " bytes, too early");
  }
  const FileDescriptor parent = m_directory.OpenParent(names, true);
  if (!parent) {
    co_return CannotStore(errno);
  }
  if (!file.MoveTo(parent.Get(), names.back())) {
    co_return CannotStore(file.Error());
  }

  LumJson::Value answer;
  answer["stored"] = LumSafeText(call.path);
  answer["bytes"] = bytes;
  Reply reply = JsonReply(answer);
  reply.note.kind = "upload";
  reply.note.object = boost::algorithm::join(names, "/");
  co_return reply;
}

Reply Objects::Get(const Call& call) const {
  const std::vector<std::string> names = call.NamesBehindFirst();
  if (!names.empty() && IsUnfinished(names[0])) {
    return CannotRead(ENOENT);
  }
  return SendFile(m_directory, call);
}
