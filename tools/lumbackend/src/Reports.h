// The store of reported documents.
#ifndef LUM_BACKEND_REPORTS_H
#define LUM_BACKEND_REPORTS_H

#include <LumJson.h>

#include <cstdint>
#include <mutex>

#include "Message.h"

// Keeps documents in ROOT/reports.jsonl, one compact document a line. Safe for several threads at
// once; no other program may write to the file meanwhile.
class Reports {
 public:
  // Throws std::runtime_error when the file cannot be opened.
  explicit Reports(const RootDir& root);

  // POST /report: stores `document` and answers {"stored": n}, n being the number of documents in
  // the file, or an empty 204 when the query says "status=204".
  Reply Store(const Call& call, const LumJson::Value& document);

 private:
  std::mutex m_mutex;
  FileDescriptor m_file;     // guarded by m_mutex, like the counters
  std::uint64_t m_size = 0;  // bytes
  std::uint64_t m_documents = 0;
};

#endif  // LUM_BACKEND_REPORTS_H
