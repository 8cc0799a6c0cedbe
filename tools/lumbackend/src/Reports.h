// Reports, and where to put a log.
#ifndef LUM_BACKEND_REPORTS_H
#define LUM_BACKEND_REPORTS_H

#include <cstdint>

#include "History.h"
#include "Message.h"
#include "Store.h"

// Safe for several threads at once.
class Reports {
 public:
  // Both must outlive the object.
  Reports(Store& store, History& history) : m_store(store), m_history(history) {}

  // POST /report: keeps the document, of `limit` bytes at most, and answers {"stored": n}, n being
  // the number of reports so far, or an empty 204 when the query says "status=204".
  Task<Reply> Add(const Call& call, BodySource& body, std::uint64_t limit);

  // GET /reports: all of them, one compact document a line.
  Reply All();

 private:
  Store& m_store;
  History& m_history;
};

// GET /log-address: {"url", "accessId", "fileName"}.
Reply LogAddress(const Call& call);

#endif  // LUM_BACKEND_REPORTS_H
