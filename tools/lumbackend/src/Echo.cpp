// The answer of /echo.
#include <LumSafeText.h>

#include "Body.h"
#include "Routes.h"

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
