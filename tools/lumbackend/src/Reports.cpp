// The routes of documents: echoes, reports, and where logs go.
#include <LumSafeText.h>

#include "Body.h"
#include "Routes.h"
#include "Text.h"

namespace {

constexpr std::size_t kShown = 200;     // bytes of a document that a list shows
constexpr std::size_t kPiece = 262144;  // bytes of reports at once

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

// All reports, a piece at a time, so that neither memory nor the database is held up.
class Lines final : public BodySource {
 public:
  explicit Lines(const std::string& path) : m_database(path) {}

  Task<std::string_view> Next() override {
    Query query(m_database, "SELECT id, document FROM report WHERE id > ?1 ORDER BY id", {m_after});
    m_piece.clear();
    while (m_piece.size() < kPiece && query.Next()) {
      m_after = query.Number(0);
      m_piece.append(query.Text(1)).append("\n");
    }
    co_return m_piece;
  }

 private:
  const Database m_database;
  std::int64_t m_after = 0;
  std::string m_piece;
};

}  // namespace

Task<Reply> Echo(const Call& call, BodySource& body, std::uint64_t limit) {
  LumJson::Value answer;
  answer["method"] = call.method;
  answer["path"] = LumSafeText(call.path);
  answer["query"] = LumSafeText(call.query);
  answer["headers"] = ShownHead(call.headers);
  answer["scheme"] = call.tls ? "https" : "http";
  answer["clientCertificate"] = call.clientSubject.empty()
                                    ? LumJson::Value()
                                    : LumJson::Value(LumSafeText(call.clientSubject));
  Note note;
  note.kind = "echo";
  if (call.method == "POST" || call.method == "PUT") {
    Document document = co_await ReadJson(call, body, limit);
    if (document.refusal) {
      co_return* document.refusal;
    }
    answer["body"] = std::move(document.value);
    note.body = std::move(document.kept);
    note.size = document.size;
  }
  Reply reply = JsonReply(answer);
  reply.note = std::move(note);
  co_return reply;
}

Task<Reply> AddReport(Store& store, const Call& call, BodySource& body, std::uint64_t limit) {
  Document document = co_await ReadJson(call, body, limit);
  if (document.refusal) {
    co_return* document.refusal;
  }
  const auto status = call.QueryValue("status");
  if (status && *status != "200" && *status != "204") {
    co_return Problem(400, "'status' in the query is neither 200 nor 204");
  }
  Note note = SubjectOf(document.value);
  std::string line = Compact(document.value);
  document = Document();
  note.kind = "report";
  note.text = StartOf(line, kShown) + (line.size() > kShown ? "..." : "");
  note.size = line.size();
  const Store::Written written = co_await store.AddReport(std::move(line));
  if (!written.problem.empty()) {
    co_return Problem(507, "cannot store the report: " + written.problem);
  }
  LumJson::Value answer;
  answer["stored"] = written.id;
  Reply reply = JsonReply(answer);
  if (status == "204") {
    reply.status = 204;
    reply.body.clear();
  }
  note.report = written.id;
  reply.note = std::move(note);
  co_return reply;
}

Reply AllReports(const Store& store) {
  Reply reply = LiveReply("application/jsonl");
  reply.stream = std::make_shared<Lines>(store.Path());
  return reply;
}

// Clients put the values into the query as they are, without percent-encoding: a file name may hold
// '&' or '=', and runs to the end of the query.
Reply LogAddress(const Call& call) {
  const std::string accessKey = "access_id=";
  const std::string nameKey = "&file_name=";
  const std::size_t start = call.query.find(accessKey);
  const std::size_t middle = start == std::string::npos ? start : call.query.find(nameKey, start);
  if (middle == std::string::npos) {
    return Problem(400, "the query does not end in access_id=...&file_name=...");
  }
  const std::string accessId =
      call.query.substr(start + accessKey.size(), middle - start - accessKey.size());
  const std::string fileName = call.query.substr(middle + nameKey.size());
  if (accessId.empty()) {
    return Problem(400, "access_id in the query is empty");
  }
  if (!RootDir::IsPlainName(fileName)) {
    return Problem(400, "file_name in the query is no plain file name");
  }
  LumJson::Value answer;
  answer["url"] = (call.tls ? "https://" : "http://") + call.authority + "/objects/logs/" +
                  EncodePercent(fileName);
  answer["accessId"] = accessId;
  answer["fileName"] = fileName;
  Reply reply = JsonReply(answer);
  reply.note.kind = "address";
  reply.note.device = accessId;
  reply.note.object = fileName;
  return reply;
}
