// upload-log, upload-video, upload-file, upload-dir and upload-group.

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Commands.h"
#include "Exchange.h"
#include "Input.h"
#include "Interrupt.h"
#include "Progress.h"
#include "Signature.h"
#include "Text.h"
#include "Url.h"

namespace {

constexpr unsigned int kUploadTimeLimit = 60;  // seconds; the library's for signed uploads

constexpr char kZipContent[] = "Content-Type: application/zip";
constexpr char kVideoContent[] = "Content-Type: video/mp4";
constexpr char kArchiveEnd[] = ".tar.gz";

// The status shows in the log of the signed form alone.
const Verdict kRefused = {Exit::kOther,
                          "the server's answer was not 200; its status is not visible here",
                          "its reply, on standard output, may say what is wrong"};

bool Exists(const std::string& path) {
  struct stat status = {};
  return lstat(path.c_str(), &status) == 0;
}

// Pinning reads the host out of the URL: up to the first slash, whatever stands there.
void CheckPinning(const Options& options) {
  if (options.pinIp.empty()) {
    return;
  }
  const std::size_t host = options.url.find("://") + 3;
  const std::size_t end = options.url.find_first_of("/?#", host);
  if (end == std::string::npos || options.url[end] != '/' ||
      options.url.substr(host, end - host).find_first_of("@[") != std::string::npos) {
    throw Failure(Exit::kUsage,
                  "--pin-ip needs a URL of the form http://HOST[:PORT]/PATH, HOST being a name; "
                  "nothing was sent");
  }
}

// What signs an upload; an empty authorisation: nothing does.
struct Signing {
  std::string authorisation;
  std::string date;
  std::string securityToken;
};

// Computes or reads the signature that the command line asks for.
Signing ReadSigning(const Options& options, Console& console) {
  Signing signing;
  signing.date = options.date;
  if (!options.signKeyFile.empty()) {
    std::string key = ReadSecret("the key", options.signKeyFile, nullptr, console);
    if (key.empty()) {
      throw Failure(Exit::kUsage, "the key in " + options.signKeyFile + " is empty");
    }
    if (signing.date.empty()) {
      signing.date = HttpDate(std::time(nullptr));
    }
    signing.authorisation = Signature(key, "PUT", signing.date, RequestPath(options.url));
    console.Mask(signing.authorisation);
    explicit_bzero(key.data(), key.size());
  } else if (!options.authorisationFile.empty()) {
    signing.authorisation =
        ReadSecret("the authorisation", options.authorisationFile, nullptr, console);
    if (signing.authorisation.empty() || signing.date.empty()) {
      throw Failure(Exit::kUsage, "a signed upload needs an authorisation and a date");
    }
  } else if (!signing.date.empty() || !options.securityTokenFile.empty()) {
    throw Failure(Exit::kUsage,
                  "--date and --security-token-file belong to a signed upload: give "
                  "--sign-key-file or --authorisation-file");
  }
  signing.securityToken =
      ReadSecret("the security token", options.securityTokenFile, nullptr, console);
  return signing;
}

// The header lines that the library makes of it.
std::vector<std::string> HeaderLines(const Signing& signing) {
  if (signing.authorisation.empty()) {
    return {kZipContent};
  }
  std::vector<std::string> lines = {"Authorization: " + signing.authorisation,
                                    "Date: " + signing.date};
  if (!signing.securityToken.empty()) {
    lines.push_back("x-zun-security-token: " + signing.securityToken);
  }
  return lines;
}

void Configure(LumCurlOrvOps& client, const Signing& signing) {
  if (!signing.authorisation.empty()) {
    client.SetUploadLogAuthorisation(signing.authorisation);
    client.SetUploadLogDate(signing.date);
    client.SetSecurityToken(signing.securityToken);
  }
}

// Warns of an upload that cannot be done in time at the speed that the user allows.
void WarnOfRate(const Options& options, Console& console, const std::string& path,
                std::uint64_t size, unsigned int timeLimit) {
  if (options.limitRate <= 0 || timeLimit == 0) {
    return;
  }
  const auto rate = static_cast<std::uint64_t>(options.limitRate);
  const std::uint64_t needed = size / rate + (size % rate != 0 ? 1 : 0);
  if (needed > timeLimit) {
    console.Warn("at " + HumanBytes(static_cast<double>(rate)) + "/s the upload of " +
                 Quoted(path) + " needs " + std::to_string(needed) + " s, the limit is " +
                 std::to_string(timeLimit) + " s");
  }
}

// One upload: of `path`, which `packs` makes first.
struct Sendable {
  std::string path;
  bool packs = false;
  unsigned int timeLimit = 0;
};

// The library writes the server's reply to standard output, and looks at no result. The upload is
// what counts: without its reply it is done all the same.
void WarnOfLostReply(Console& console) {
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    console.Warn("the server's reply cannot be written to standard output");
  }
}

// Runs `upload`. Where progress is shown or the size matters, the library reads the file through a
// stream that counts.
int Upload(ServiceCall& call, const Options& options, Console& console, const Sendable& what,
           const std::function<int()>& upload) {
  const EscapedStdout escaped;
  if (!console.ShowsProgress() && options.limitRate <= 0) {
    const int result = upload();
    WarnOfLostReply(console);
    return result;
  }
  UploadStream file(what.path, [&](std::uint64_t size) {
    WarnOfRate(options, console, what.path, size, what.timeLimit);
  });
  int result = 0;
  if (what.packs || file.Open()) {
    call.client.SetFp(file.Stream());
    {
      ProgressMeter meter(console, [&file] { return file.Sent(); });
      result = upload();
      if (result == 0 && !call.exchange.Told().uploadFailed) {
        file.Complete();
        meter.Finish();
      }
    }
    call.client.SetFp(nullptr);
    WarnOfLostReply(console);
  }
  if (file.Failed()) {
    throw Failure(Exit::kFile,
                  "cannot read " + Quoted(what.path) + " any more; check that it is still there");
  }
  return result;
}

// What the three compress-and-upload commands share. `kept`: the archive survives a failed upload.
Exit PackAndUpload(const Options& options, Console& console, const std::string& archive, bool kept,
                   const std::function<int(LumCurlOrvOps&)>& packAndUpload) {
  CheckPinning(options);
  if (Exists(archive) && !options.overwrite) {
    throw Failure(Exit::kFile, "'" + archive +
                                   "' exists already: the archive would replace it; "
                                   "move it away or give --overwrite");
  }
  const Signing signing = ReadSigning(options, console);
  ServiceCall call(options, console, {"PUT", options.url, HeaderLines(signing), kUploadTimeLimit});
  Configure(call.client, signing);
  int result = 0;
  {
    const ArchiveNote note(archive);
    result = Upload(call, options, console, {archive, true, kUploadTimeLimit},
                    [&] { return packAndUpload(call.client); });
  }
  Exchange& exchange = call.exchange;
  const Facts& told = exchange.Told();
  const bool failed = result != 0 || told.uploadFailed;
  exchange.ShowStatus(failed ? told.status : 200);
  if (!failed) {
    return exchange.Succeed();
  }
  if (told.compressFailed) {
    return exchange.Report({Exit::kFile, "cannot make the archive " + Quoted(archive),
                            "check that what it packs can be read, that no two files have one "
                            "name, and that there is room for it"});
  }
  if (told.uploadFailed) {
    const Exit exit =
        told.fileNotOpened
            ? exchange.Report(
                  {Exit::kFile, "cannot read the archive " + Quoted(archive), "try again"})
            : exchange.Fail(std::nullopt, kRefused);
    if (kept && Exists(archive)) {
      console.Error("the archive is kept: send it with upload-log, or remove " + Quoted(archive));
    }
    if (told.removeFailed) {
      console.Error("cannot remove " + Quoted(archive) + "; remove it yourself");
    }
    return exit;
  }
  return exchange.Report({Exit::kFile, "uploaded, but " + Quoted(archive) + " cannot be removed",
                          "remove it yourself"});
}

}  // namespace

// upload-video has neither header lines of the user's nor a signature.
Exit RunUpload(const Options& options, Console& console) {
  const bool isVideo = options.command == "upload-video";
  CheckPinning(options);
  RequireReadable(options.path);
  const unsigned int timeLimit = options.timeout.value_or(kUploadTimeLimit);
  const std::vector<std::string> own = ReadHeaders(options, console);
  const Signing signing = own.empty() ? ReadSigning(options, console) : Signing();
  Request request{"PUT", options.url, own, timeLimit};
  if (isVideo) {
    request.lines = {kVideoContent};
  } else if (own.empty()) {
    request.lines = HeaderLines(signing);
  }
  ServiceCall call(options, console, request);
  Configure(call.client, signing);
  const int result = Upload(call, options, console, {options.path, false, timeLimit}, [&] {
    if (isVideo) {
      return call.client.UploadVideoFile(options.url, options.path, timeLimit);
    }
    if (!own.empty()) {
      return call.client.UploadLog(options.url, options.path, timeLimit,
                                   std::list<std::string>(own.begin(), own.end()));
    }
    // Without a time limit of the user's the form that tells the status will do, signed or not.
    return options.timeout ? call.client.UploadLog(options.url, options.path, timeLimit)
                           : call.client.UploadLog(options.url, options.path);
  });
  const Facts& told = call.exchange.Told();
  call.exchange.ShowStatus(result == 0 ? std::optional<int>(200) : told.status);
  if (result == 0) {
    return call.exchange.Succeed();
  }
  if (told.fileNotOpened || told.status == -1) {
    return call.exchange.Report({Exit::kFile, "cannot read " + Quoted(options.path) + " any more",
                                 "check that it is still there"});
  }
  return call.exchange.Fail(std::nullopt, kRefused);
}

Exit RunUploadFile(const Options& options, Console& console) {
  RequireReadable(options.path);
  return PackAndUpload(options, console, options.path + kArchiveEnd, false,
                       [&options](LumCurlOrvOps& client) {
                         return client.UploadLogFileForCompress(options.url, options.path);
                       });
}

Exit RunUploadDirectory(const Options& options, Console& console) {
  struct stat status = {};
  if (stat(options.path.c_str(), &status) != 0) {
    throw Failure(Exit::kFile, "cannot read " + Quoted(options.path) + ": " + std::strerror(errno));
  }
  if (!S_ISDIR(status.st_mode)) {
    throw Failure(Exit::kFile, Quoted(options.path) + " is no directory; upload-file packs a file");
  }
  return PackAndUpload(options, console, options.path + kArchiveEnd, true,
                       [&options](LumCurlOrvOps& client) {
                         return client.UploadLogDirPathForCompress(options.url, options.path);
                       });
}

Exit RunUploadGroup(const Options& options, Console& console) {
  std::string group;
  for (const std::string& file : options.files) {
    RequireReadable(file);
    group += file + "\n";
  }
  std::optional<TemporaryDirectory> directory;
  if (options.archive.empty()) {
    directory.emplace();
  }
  const std::string archive = directory ? directory->Archive() : options.archive + kArchiveEnd;
  const std::string base = archive.substr(0, archive.size() - std::strlen(kArchiveEnd));
  return PackAndUpload(options, console, archive, false,
                       [&options, &group, &base](LumCurlOrvOps& client) {
                         return client.UploadLogFileGorupForCompress(options.url, group, base);
                       });
}
