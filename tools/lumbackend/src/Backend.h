// What the back end does with a request, without any socket.
#ifndef LUM_BACKEND_BACKEND_H
#define LUM_BACKEND_BACKEND_H

#include <LumJson.h>

#include <cstdint>
#include <optional>
#include <string>

#include "Apollo.h"
#include "Events.h"
#include "Faults.h"
#include "Message.h"
#include "Objects.h"
#include "Options.h"
#include "Reports.h"
#include "RootDir.h"
#include "Tokens.h"

// Routes, and the state behind them. Safe for several threads at once.
class Backend {
 public:
  // `signKey` is the content of options.signKeyFile. Throws std::runtime_error when a file or
  // directory below options.root cannot be used.
  Backend(const Options& options, const std::string& signKey);

  // The answer to one request. May throw; the request was then not carried out in full.
  Reply Handle(const Call& call, BodySource& body);

  // To be called when a request is over: writes one line to the access log on standard error, and
  // shows reports, uploads and refusals on the page. `status` 0: there was no answer. `bytesIn` is
  // the size of the request's body, `bytesOut` that of the whole answer.
  void Finished(const Call& call, int status, const Note& note, std::uint64_t bytesIn,
                std::uint64_t bytesOut);

  // Writes one line to standard error.
  static void Complain(const std::string& text);

  // True for the page at / and its events, which take no part in misbehaviour.
  static bool IsMonitor(const Call& call);

  const Options& Settings() const { return m_options; }

 private:
  struct Route;

  Reply Dispatch(const Call& call, BodySource& body);
  std::optional<Reply> RefuseWithoutToken(const Call& call) const;
  std::uint64_t JsonLimit() const;
  void Record(const Call& call, int status, const Note& note, std::uint64_t bytesIn);

  Reply Page(const Call& call, BodySource& body);
  Reply LastEvents(const Call& call, BodySource& body);
  Reply Echo(const Call& call, BodySource& body);
  Reply File(const Call& call, BodySource& body);
  Reply NewToken(const Call& call, BodySource& body);
  Reply RefreshToken(const Call& call, BodySource& body);
  Reply Report(const Call& call, BodySource& body);
  Reply LogAddress(const Call& call, BodySource& body);
  Reply PutObject(const Call& call, BodySource& body);
  Reply GetObject(const Call& call, BodySource& body);
  Reply Configuration(const Call& call, BodySource& body);

  const Options m_options;
  const RootDir m_root;
  const RootDir m_files;
  Tokens m_tokens;
  Reports m_reports;
  const Objects m_objects;
  const Apollo m_apollo;
  Events m_events;
  Faults m_faults;
};

#endif  // LUM_BACKEND_BACKEND_H
