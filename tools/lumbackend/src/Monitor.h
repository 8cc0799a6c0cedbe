// What the page at / asks for.
#ifndef LUM_BACKEND_MONITOR_H
#define LUM_BACKEND_MONITOR_H

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "History.h"
#include "Message.h"
#include "Store.h"

// Reads of what is kept. Safe for several threads at once.
class Monitor {
 public:
  // Both must outlive the object; `keep` is what is told about the limit.
  Monitor(Store& store, History& history, std::uint64_t keep);

  // The paths of Paths.h that are answered here, all by GET, with what answers them.
  std::vector<std::pair<std::string, std::function<Reply(const Call&)>>> Answers();

 private:
  Reply Exchanges(const Call& call);
  Reply Exchange(const Call& call);
  Reply Body(const Call& call);
  Reply Totals();
  Reply Chart(const Call& call);
  Reply Events(const Call& call);

  Store& m_store;
  History& m_history;
  const std::uint64_t m_keep;
  const std::string m_run;  // names this run of the back end
};

// GET /: the page, embedded at build time, with headers that let it load and run nothing but
// itself.
Reply PageReply();

// GET /stream: server-sent events without an end. Each tells of the newest exchanges, of how many
// there was no room for, and the totals. A reader that comes back says in Last-Event-ID, or else in
// "after" of the query, what it has seen. Both objects must outlive the answer.
Reply StreamReply(const Call& call, const Store& store, History& history);

#endif  // LUM_BACKEND_MONITOR_H
