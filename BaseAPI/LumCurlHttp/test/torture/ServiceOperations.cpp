// LumCurlOrvOps.

#include <list>

#include "LumCurlOrvOpsPrivate.h"
#include "Operation.h"
#include "Texts.h"

namespace lumtest {
namespace {

using Log = StatedFailure::Log;
using Run = std::function<std::string(World&)>;

constexpr char kToken[] = "a token of more than fifteen characters";
constexpr char kName[] = "a-name-of-more-than-fifteen-characters";
constexpr char kUnknownMac[] = "02:00:00:00:00:01";
constexpr unsigned int kTimeout = 5;

// Once a status has arrived it stands, though the transfer breaks afterwards.
const std::vector<StatedFailure> kReportFailures = {{"-10000"},
                                                    {"0", "POST failed for", Log::kError, true}};
const std::vector<StatedFailure> kUploadFailures = {{"-10000"},
                                                    {"0", "PUT failed for", Log::kError, true}};
const std::vector<StatedFailure> kStatusFailures = {
    {"-1 null"}, {"0 null"}, {"200 null"}, {"500 null"}};
// A group's and a file's upload that fails shows in the log alone, as long as the archive goes.
const std::vector<StatedFailure> kCompressFailures = {
    {"-10000"}, {"0", "upload file failed"}, {"0", "PUT failed for", Log::kError, true}};

const std::vector<Road> kJsonRoads = {Road::kAnswer, Road::kError, Road::kNotJson, Road::kCut,
                                      Road::kRefused};
const std::vector<Road> kStatusRoads = {Road::kAnswer, Road::kError, Road::kCut, Road::kRefused};

Operation Report(const std::string& name, Run run) {
  return {"LumCurlOrvOps::ReportData" + name, std::move(run), kStatusRoads, kReportFailures};
}

Operation Upload(const std::string& name, Run run) {
  Operation upload{"LumCurlOrvOps::Upload" + name, std::move(run), kStatusRoads, kUploadFailures};
  upload.limitSeconds = 60;
  return upload;
}

Operation Setting(const std::string& name, Run run) {
  return {"LumCurlOrvOps::" + name, std::move(run)};
}

std::vector<Operation> Reports() {
  return {
      Report("",
             [](World& w) {
               return std::to_string(
                   w.Try([&] { return w.service.ReportData(w.url, w.document, kToken, "topic"); }));
             }),
      Report(", time limit",
             [](World& w) {
               return std::to_string(w.Try([&] {
                 return w.service.ReportData(w.url, w.document, kToken, kTimeout, "topic");
               }));
             }),
      Report("WithGzip, access identifier",
             [](World& w) {
               return std::to_string(w.Try([&] {
                 return w.service.ReportDataWithGzip(w.url, w.document, kToken, kLongText);
               }));
             }),
      Report("WithGzip",
             [](World& w) {
               return std::to_string(
                   w.Try([&] { return w.service.ReportDataWithGzip(w.url, w.document, kToken); }));
             }),
      Report("WithGzip, number",
             [](World& w) {
               return std::to_string(w.Try(
                   [&] { return w.service.ReportDataWithGzip(w.url, w.document, kToken, 1U); }));
             }),
      Report("WithGzip, topic",
             [](World& w) {
               return std::to_string(w.Try([&] {
                 return w.service.ReportDataWithGzip(w.url, w.document, kToken, kLongText, "topic");
               }));
             }),
  };
}

std::vector<Operation> Requests() {
  return {
      {"LumCurlOrvOps::GetToken",
       [](World& w) { return Text(w.Try([&] { return w.service.GetToken(w.url, w.document); })); },
       kJsonRoads,
       {{"null"}}},
      {"LumCurlOrvOps::RefreshToken",
       [](World& w) {
         return Text(w.Try([&] { return w.service.RefreshToken(w.url, w.document, kToken); }));
       },
       kJsonRoads,
       {{"null"}}},
      {"LumCurlOrvOps::GetLogAddress",
       [](World& w) {
         return Text(w.Try([&] { return w.service.GetLogAddress(w.url, kName, kToken, kName); }));
       },
       kJsonRoads,
       {{"null"}}},
      {"LumCurlOrvOps::Get",
       [](World& w) {
         int status = -2;
         const std::list<std::string> lines = {"X-One: 1", "X-Empty: "};
         const LumJson::Value answer = w.Try([&] { return w.service.Get(w.url, lines, status); });
         return Text(status, answer);
       },
       kJsonRoads, kStatusFailures},
      {"LumCurlOrvOps::Post",
       [](World& w) {
         int status = -2;
         const std::list<std::string> lines = {"X-One: 1", "X-Empty: "};
         const LumJson::Value answer =
             w.Try([&] { return w.service.Post(w.url, kBody, lines, status); });
         return Text(status, answer);
       },
       kJsonRoads, kStatusFailures},
  };
}

// The two-argument upload of a.log.
std::string UploadLog(World& w) {
  const std::string path = w.Path("a.log");
  return std::to_string(w.Try([&] { return w.service.UploadLog(w.url, path); }));
}

std::vector<Operation> Uploads() {
  std::vector<Operation> all = {
      Upload("Log, lines",
             [](World& w) {
               const std::string path = w.Path("a.log");
               const std::list<std::string> lines = {"X-One: 1", "X-Empty: "};
               return std::to_string(
                   w.Try([&] { return w.service.UploadLog(w.url, path, kTimeout, lines); }));
             }),
      Upload("Log, time limit",
             [](World& w) {
               const std::string path = w.Path("a.log");
               return std::to_string(
                   w.Try([&] { return w.service.UploadLog(w.url, path, kTimeout); }));
             }),
      Upload("VideoFile",
             [](World& w) {
               const std::string path = w.Path("a.log");
               return std::to_string(
                   w.Try([&] { return w.service.UploadVideoFile(w.url, path, kTimeout); }));
             }),
      Upload("Log, signed", UploadLog),
  };
  all.back().prepare = [](World& w) {
    w.service.SetUploadLogDate(kLongText);
    w.service.SetUploadLogAuthorisation(kLongText);
    w.service.SetSecurityToken(kToken);
  };
  for (Operation& upload : all) {
    upload.limitSeconds = upload.prepare ? 60 : static_cast<int>(kTimeout);
  }
  return all;
}

std::vector<Operation> CompressedUploads() {
  std::vector<Operation> all = {
      Upload("LogFileForCompress",
             [](World& w) {
               const std::string path = w.Path("a.log");
               return std::to_string(
                   w.Try([&] { return w.service.UploadLogFileForCompress(w.url, path); }));
             }),
      Upload("LogDirPathForCompress",
             [](World& w) {
               const std::string path = w.Path("logs");
               return std::to_string(
                   w.Try([&] { return w.service.UploadLogDirPathForCompress(w.url, path); }));
             }),
      Upload("LogFileGorupForCompress",
             [](World& w) {
               const std::string group = w.Path("a.log") + "\n" + w.Path("b.log");
               const std::string base = w.Path("group");
               return std::to_string(w.Try(
                   [&] { return w.service.UploadLogFileGorupForCompress(w.url, group, base); }));
             }),
  };
  for (Operation& upload : all) {
    upload.failures = kCompressFailures;
    upload.roads = {Road::kAnswer, Road::kError, Road::kRefused};
  }
  return all;
}

// Roads through the settings that change how a transfer is made.
std::vector<Operation> SettledTransfers() {
  Operation pinned = Upload("Log, pinned address", UploadLog);
  pinned.prepare = [](World& w) { w.service.SetDomainIp("127.0.0.1"); };

  Operation streamed = Upload("Log, stream of the caller", UploadLog);
  streamed.prepare = [](World& w) { w.service.SetFp(w.stream.get()); };

  Operation limited = Upload("Log, speed limit", UploadLog);
  limited.prepare = [](World& w) { w.service.SetLimitSpeed(1 << 30); };

  Operation refusedPath{
      "LumCurlOrvOps::UploadLog, refused path",
      [](World& w) {
        const std::string path = w.Path("logs");
        return std::to_string(w.Try([&] { return w.service.UploadLog(w.url, path); }));
      },
      {Road::kNone},
      kUploadFailures};

  refusedPath.limitSeconds = 60;

  Operation missing{"LumCurlOrvOps::UploadLogFileForCompress, no such file",
                    [](World& w) {
                      const std::string path = w.Path("missing");
                      return std::to_string(
                          w.Try([&] { return w.service.UploadLogFileForCompress(w.url, path); }));
                    },
                    {Road::kNone},
                    kCompressFailures};

  Operation bound = Requests()[3];
  bound.name += ", bound interface";
  bound.roads = {Road::kAnswer};
  bound.prepare = [](World& w) { w.service.SetBindInterface("lo"); };

  Operation boundByMac = Requests()[3];
  boundByMac.name += ", bound MAC that nobody has";
  boundByMac.roads = {Road::kAnswer};
  boundByMac.prepare = [](World& w) { w.service.SetBindMac(kUnknownMac); };
  return {pinned, streamed, limited, refusedPath, missing, bound, boundByMac};
}

std::vector<Operation> Settings() {
  std::vector<Operation> all = {
      Setting("LumCurlOrvOps",
              [](World& w) {
                const auto made = w.Try([] { return std::make_unique<LumCurlOrvOps>(); });
                made->CurlGlobalInit();  // what its destructor takes back
                return std::to_string(made->d_pointer->connectTimeout);
              }),
      Setting("CurlGlobalInit",
              [](World& w) {
                LumCurlOrvOps client;
                w.Try([&] { client.CurlGlobalInit(); });
                return std::to_string(client.d_pointer->curlGlobalInited);
              }),
      Setting("GetDomain",
              [](World& w) {
                const std::string url = "https://a-host-of-more-than-fifteen.example:8443/path";
                return w.Try([&] { return LumCurlOrvOps::GetDomain(url); });
              }),
      Setting("GetDomain, no URL",
              [](World& w) {
                const std::string url = "ftp://a-host-of-more-than-fifteen.example/path";
                return w.Try([&] { return LumCurlOrvOps::GetDomain(url); });
              }),
      Setting("SetSslInfo",
              [](World& w) {
                w.Try([&] {
                  w.service.SetSslInfo(kLongText, kLongText, kLongText, w.passPhrase,
                                       sizeof w.passPhrase);
                });
                const LumCurlOrvOpsPrivate& own = *w.service.d_pointer;
                return own.caInfoPath + own.sslCertPath + own.sslKeyPath +
                       reinterpret_cast<const char*>(own.keyPassword);
              }),
      Setting("SetSslInfo, no pass phrase",
              [](World& w) {
                w.Try([&] { w.service.SetSslInfo(kLongText, kLongText, kLongText, nullptr, 0); });
                return w.service.d_pointer->caInfoPath;
              }),
      Setting("SetLimitSpeed",
              [](World& w) {
                w.Try([&] { w.service.SetLimitSpeed(7); });
                return std::to_string(w.service.d_pointer->limitSpeed);
              }),
      Setting("SetFp",
              [](World& w) {
                w.Try([&] { w.service.SetFp(w.stream.get()); });
                return std::to_string(w.service.d_pointer->uploadFp == w.stream.get());
              }),
      Setting("GetLastErrorBody",
              [](World& w) { return w.Try([&] { return w.service.GetLastErrorBody(); }); }),
      Setting("UpdateLastError",
              [](World& w) {
                const std::string body = kLongText;
                w.Try([&] { w.service.UpdateLastError(body); });
                return w.service.lastErrorBody;
              }),
  };
  all[8].prepare = [](World& w) { w.service.UpdateLastError(kLongText); };
  all[9].prepare = [](World& w) { std::string().swap(w.service.lastErrorBody); };

  // The setters of one text each.
  using Setter = void (LumCurlOrvOps::*)(const std::string&);
  using Stored = std::string LumCurlOrvOpsPrivate::*;
  const struct {
    const char* name;
    Setter set;
    Stored stored;
  } kSetters[] = {
      {"SetUploadLogDate", &LumCurlOrvOps::SetUploadLogDate, &LumCurlOrvOpsPrivate::uploadLogDate},
      {"SetUploadLogAuthorisation", &LumCurlOrvOps::SetUploadLogAuthorisation,
       &LumCurlOrvOpsPrivate::uploadLogAuthorisation},
      {"SetSecurityToken", &LumCurlOrvOps::SetSecurityToken, &LumCurlOrvOpsPrivate::securityToken},
      {"SetSwiftIp", &LumCurlOrvOps::SetSwiftIp, &LumCurlOrvOpsPrivate::domainIp},
      {"SetDomainIp", &LumCurlOrvOps::SetDomainIp, &LumCurlOrvOpsPrivate::domainIp},
      {"SetBindInterface", &LumCurlOrvOps::SetBindInterface, &LumCurlOrvOpsPrivate::bindInterface},
      {"SetBindMac", &LumCurlOrvOps::SetBindMac, &LumCurlOrvOpsPrivate::bindMac},
      {"SetBindIp", &LumCurlOrvOps::SetBindIp, &LumCurlOrvOpsPrivate::bindIp},
  };
  for (const auto& setter : kSetters) {
    Operation operation = Setting(setter.name, [setter](World& w) {
      const std::string text = kLongText;
      w.Try([&] { (w.service.*setter.set)(text); });
      return w.service.d_pointer->*setter.stored;
    });
    operation.prepare = [setter](World& w) {
      std::string().swap(w.service.d_pointer->*setter.stored);
    };
    all.push_back(operation);
  }
  return all;
}

void Append(std::vector<Operation>& all, std::vector<Operation> more) {
  all.insert(all.end(), more.begin(), more.end());
}

}  // namespace

std::vector<Operation> ServiceOperations(Connection connection) {
  std::vector<Operation> all;
  if (connection == Connection::kCertificate) {
    // One operation of each transfer: they all offer the certificate by the same lines.
    all = {Reports()[0], Reports()[2], Requests()[1], Requests()[3], Uploads()[3]};
    for (Operation& operation : all) {
      operation.prepare = [then = operation.prepare](World& w) {
        w.OfferCertificate(w.service);
        if (then) {
          then(w);
        }
      };
    }
    return all;
  }
  Append(all, Reports());
  Append(all, Requests());
  Append(all, Uploads());
  Append(all, CompressedUploads());
  if (connection == Connection::kPlain) {
    Append(all, SettledTransfers());
    Append(all, Settings());
  }
  return all;
}

}  // namespace lumtest
