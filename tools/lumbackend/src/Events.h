// What happened lately, for the page at /.
#ifndef LUM_BACKEND_EVENTS_H
#define LUM_BACKEND_EVENTS_H

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

#include "Message.h"

// One report, upload or refusal.
struct Event {
  std::uint64_t id = 0;   // counted from 1
  std::int64_t time = 0;  // milliseconds since 1970
  std::string kind;       // "report", "upload" or "refusal"
  std::string method;     // texts are valid UTF-8
  std::string path;
  std::string text;  // what was stored, or the reason of the refusal
  int status = 0;
  std::uint64_t bytes = 0;  // of the request
};

// The last events. Safe for several threads at once.
class Events {
 public:
  Events();

  // Numbers the event and keeps it; the oldest one gives way.
  void Add(Event event);

  // The events behind number `after` as a JSON document: {"run", "last", "events": [...]}. "run"
  // names this run of the back end: a reader that sees it change starts over.
  std::string After(std::uint64_t after) const;

 private:
  const std::string m_run;
  mutable std::mutex m_mutex;
  std::deque<Event> m_events;  // guarded by m_mutex, like the number
  std::uint64_t m_last = 0;
};

#endif  // LUM_BACKEND_EVENTS_H
