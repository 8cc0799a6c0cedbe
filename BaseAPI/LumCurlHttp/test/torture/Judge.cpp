// The rules that no fault may break.

#include "Judge.h"

#include <algorithm>
#include <iterator>
#include <regex>

namespace lumtest {
namespace {

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// Whether `seen` is `usual`, or `usual` with one line lost or cut short: the log has no one to tell
// that it failed.
bool SameLog(const std::vector<std::string>& usual, const std::vector<std::string>& seen) {
  if (usual == seen) {
    return true;
  }
  const auto differing = std::mismatch(seen.begin(), seen.end(), usual.begin(), usual.end());
  if (differing.second == usual.end()) {
    return false;
  }
  const std::vector<std::string> rest(differing.second + 1, usual.end());
  return rest == std::vector<std::string>(differing.first, seen.end());
}

// The requests without the lines that frame their bodies (RFC 9112 section 6).
std::vector<std::string> Unframed(std::vector<std::string> requests) {
  static const std::regex framing("(Content-Length|Transfer-Encoding): [^\\r]*\\r\\n");
  for (std::string& request : requests) {
    request = std::regex_replace(request, framing, "");
  }
  return requests;
}

// A file whose size the fault hides is sent in chunks: its body is compared all the same.
bool SameRequests(const Fault& fault, const Observation& usual, const Observation& seen) {
  return seen.requests == usual.requests ||
         (fault.HidesSizes() && Unframed(seen.requests) == Unframed(usual.requests));
}

bool HasErrorLine(const std::vector<std::string>& log, const std::string& part) {
  return std::any_of(log.begin(), log.end(), [&](const std::string& line) {
    return line.find(" error ") != std::string::npos && line.find(part) != std::string::npos;
  });
}

// What a failure may have changed in the directory: nothing but a download, or a whole archive.
std::string WrongFile(const World& world, const Fault& fault, const Observation& usual,
                      const Observation& seen) {
  for (const auto& [name, digest] : usual.files) {
    const bool made = name == "download" || EndsWith(name, ".tar.gz");
    if (!made && (seen.files.count(name) == 0 || seen.files.at(name) != digest)) {
      return name + " was touched";
    }
  }
  for (const auto& [name, digest] : seen.files) {
    if (usual.files.count(name) != 0 && !EndsWith(name, ".tar.gz")) {
      continue;
    }
    if (EndsWith(name, ".tar.gz")) {
      const auto archive = world.Archives().find(name);
      if (archive == world.Archives().end() || archive->second != digest) {
        return "a partial archive has the name " + name;
      }
    } else if (name != "download" && !fault.HindersRemoval()) {
      return name + " was left behind";
    }
  }
  return "";
}

// The failure of the contract that the answer stands for, with what belongs to it; null for none.
const StatedFailure* FindStated(const Subject& subject, const Observation& seen, bool sameRequests,
                                bool outputLost) {
  const auto found = std::find_if(
      subject.failures.begin(), subject.failures.end(), [&](const StatedFailure& failure) {
        const bool logged = failure.log == StatedFailure::Log::kNothing
                                ? !HasErrorLine(seen.log, "")
                                : HasErrorLine(seen.log, failure.line) || outputLost;
        return seen.answer == failure.answer && logged && (!failure.wholeRequest || sameRequests);
      });
  return found == subject.failures.end() ? nullptr : &*found;
}

// What a library does wrong when one of its allocations fails.
struct Excuse {
  const char* what;      // part of the verdict's reason
  const char* library;   // "libcrypto.so.3": whose code ended the process, or met the fault
  const char* function;  // of that library, on the stack there; "": none that it exports
};

// docs/torture.md tells about each of them.
constexpr Excuse kExcuses[] = {
    // __archive_errx() calls exit() when a string of an entry cannot grow.
    {"it ended the process", "libarchive.so.13", ""},
    // The URL's query is left out of the request.
    {"with other requests than usual", "libcurl.so.4", "curl_url_get"},
};

}  // namespace

Verdict Judge(const Subject& subject, const World& world, const Fault& fault,
              const Observation& usual, const Observation& seen) {
  const std::string wrongFile = WrongFile(world, fault, usual, seen);
  if (!wrongFile.empty()) {
    return {Outcome::kBad, wrongFile};
  }
  if (seen.descriptorLeft) {
    return {Outcome::kBad, "a descriptor was left open"};
  }
  if (seen.answer == "std::bad_alloc") {
    return fault.MayThrow() ? Verdict{Outcome::kBadAlloc}
                            : Verdict{Outcome::kBad, "std::bad_alloc with memory at hand"};
  }
  const bool sameOutput = seen.output == usual.output || fault.StruckAnOutput();
  const bool sameRequests = SameRequests(fault, usual, seen);
  if (seen.answer == usual.answer && sameRequests && seen.files == usual.files && sameOutput &&
      SameLog(usual.log, seen.log)) {
    return {Outcome::kSame};
  }
  if (const auto* stated = FindStated(subject, seen, sameRequests, fault.StruckAnOutput())) {
    return {Outcome::kFailure, "", stated->keepsMemory};
  }
  std::string reason = "it answered \"" + seen.answer + "\"";
  reason += sameRequests ? " to the usual requests" : ", with other requests than usual";
  reason += seen.files == usual.files ? "" : ", with other files";
  reason += sameOutput ? "" : ", with other output";
  for (const std::string& line : seen.log) {
    reason += "\n    " + line;
  }
  return {Outcome::kBad, reason};
}

bool IsExcused(const std::string& reason, const FaultRecord& record) {
  const std::vector<Frame> frames = Describe(record.end.depth != 0 ? record.end : record.fault);
  // Whose code it was: abort(), exit() and strdup() do what they are told, and the thread sanitizer
  // stands in for backtrace().
  const auto culprit = std::find_if(frames.begin(), frames.end(), [](const Frame& frame) {
    return frame.library.rfind("lib", 0) == 0 && frame.library.rfind("libc.so", 0) != 0 &&
           frame.library.rfind("libtsan.so", 0) != 0;
  });
  return std::any_of(std::begin(kExcuses), std::end(kExcuses), [&](const Excuse& excuse) {
    const bool on = std::any_of(culprit, frames.end(), [&](const Frame& frame) {
      return frame.library == excuse.library && frame.function == excuse.function;
    });
    return on && culprit->library == excuse.library &&
           reason.find(excuse.what) != std::string::npos;
  });
}

}  // namespace lumtest
