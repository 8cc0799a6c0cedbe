// Files to be fetched, and the object storage.
#ifndef LUM_BACKEND_OBJECTS_H
#define LUM_BACKEND_OBJECTS_H

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

#include "Message.h"
#include "RootDir.h"

// Answers with a file beneath `root`, streamed: the names are those of `call` behind its first one.
// 404 when there is none; 403 for a symbolic link, wherever it leads.
Reply SendFile(const RootDir& root, const Call& call);

// How far the Date of an upload may be from now, in seconds, before and after.
constexpr std::time_t kDateWindow = 900;

// "" when Date and Authorization of `call` are right at the time `now`, else what is wrong, in
// words that do not hold the expected value.
std::string CheckSignature(const std::string& key, const Call& call, std::time_t now);

// Objects in ROOT/objects, one file each. An object appears under its name only when it is
// complete, in one step; an upload that fails leaves nothing behind. Objects are received and sent
// in pieces, memory does not grow with them. Safe for several threads at once.
class Objects {
 public:
  // Removes what uploads of an earlier run have left unfinished: nobody else may use `root`.
  // `signKey`, unless empty, is the key of the signatures that uploads must then carry;
  // `maxBody` is the longest object in bytes.
  Objects(const RootDir& root, std::string signKey, std::optional<std::uint64_t> maxBody);

  // PUT /objects/NAME...: stores the body; {"stored": path, "bytes": n}.
  Task<Reply> Put(const Call& call, BodySource& body) const;

  // GET /objects/NAME...
  Reply Get(const Call& call) const;

 private:
  const RootDir m_directory;
  const std::string m_signKey;
  const std::uint64_t m_limit;
};

#endif  // LUM_BACKEND_OBJECTS_H
