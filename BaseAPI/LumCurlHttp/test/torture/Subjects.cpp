// The catalogue, walked: every public operation, and beside it the ways through one that a setting
// or an argument opens.

#include "Subject.h"

#include <HttpResult.h>

#include <cmath>

namespace lumtest {
namespace {

using Log = StatedFailure::Log;

constexpr char kUnknownMac[] = "02:00:00:00:00:01";
constexpr char kReason[] = "POST failed for: ";

std::vector<Scenario> ScenariosOf(Kind kind) {
  switch (kind) {
    case Kind::kSetting:
      return {Scenario::kNone};
    case Kind::kJson:
    case Kind::kDocument:
      return {Scenario::kAnswer, Scenario::kError, Scenario::kNotJson, Scenario::kCut,
              Scenario::kRefused};
    default:
      return {Scenario::kAnswer, Scenario::kError, Scenario::kCut, Scenario::kRefused};
  }
}

// Once a status has arrived it stands, though the transfer breaks afterwards.
std::vector<StatedFailure> FailuresOf(Kind kind) {
  switch (kind) {
    case Kind::kSetting:
      return {};
    case Kind::kJson:
      return {{"null, code -1"}};
    case Kind::kDownload:
      // A refused path keeps its handle.
      return {{"-10000"}, {"-10000", "", Log::kNothing, false, true}};
    case Kind::kDocument:
      return {
          {"null"}, {"null, code -1"}, {"null, code 0"}, {"null, code 200"}, {"null, code 500"}};
    case Kind::kReport:
      return {{"-10000"}, {"0", "POST failed for", Log::kError, true}};
    case Kind::kUpload:
      return {{"-10000"}, {"0", "PUT failed for", Log::kError, true}};
    case Kind::kArchive:
      // A group's and a file's upload that fails shows in the log alone, as long as the archive
      // goes.
      return {{"-10000"}, {"0", "upload file failed"}, {"0", "PUT failed for", Log::kError, true}};
    case Kind::kApollo:
      return {{R"(the reason, code -1, cluster "default")"},
              {R"(, code -1, cluster "")"},
              {R"(, code -1, cluster "default")"}};
  }
  return {};
}

// LumApollo's failure texts are many; the log has them.
std::string WithoutReason(const std::string& answer) {
  const std::size_t end = answer.find(" ., code -1");
  return answer.rfind(kReason, 0) == 0 && end != std::string::npos
             ? "the reason" + answer.substr(end + 2)
             : answer;
}

Subject SubjectOf(const Operation& operation) {
  Subject subject{operation.name,
                  [operation](World& w) {
                    const bool downloads = operation.kind == Kind::kDownload;
                    return WithoutReason(operation.run(
                        w.caller, downloads ? w.url + "/file" : w.url, w.Directory()));
                  },
                  ScenariosOf(operation.kind), FailuresOf(operation.kind)};
  if (operation.prepare != nullptr) {
    subject.prepare = [operation](World& w) { operation.prepare(w.caller); };
  }
  subject.limitSeconds = static_cast<int>(std::ceil(operation.limit));
  subject.needsTls = operation.NeedsTls();
  return subject;
}

// An operation of the catalogue in another light.
Subject Variation(const std::string& name, const std::string& what, std::vector<Scenario> scenarios,
                  std::function<void(World&)> prepare) {
  Subject subject = SubjectOf(OperationNamed(name));
  subject.name += ", " + what;
  subject.scenarios = std::move(scenarios);
  subject.prepare = std::move(prepare);
  return subject;
}

// The same, called with a directory that is missing.
Subject Misplaced(const std::string& name, const std::string& what) {
  const Operation& operation = OperationNamed(name);
  Subject subject = Variation(name, what, {Scenario::kNone}, nullptr);
  subject.run = [operation](World& w) { return operation.run(w.caller, w.url, w.Path("missing")); };
  return subject;
}

std::vector<Subject> Variations() {
  const std::vector<Scenario> all = ScenariosOf(Kind::kUpload);
  Subject noUrl = Variation("General_Get", "no URL", {Scenario::kNone}, nullptr);
  noUrl.run = [](World& w) { return OperationNamed("General_Get").run(w.caller, "", ""); };

  Subject longUrl = SubjectOf(OperationNamed("GetPropertyString"));
  longUrl.name += ", URL too long";
  longUrl.scenarios = {Scenario::kNone};
  longUrl.run = [](World& w) {
    LumApolloEnv env{HostOf(w.url), std::string(5000, 'x'), "", "space"};
    const HttpResult result = w.caller.Try([&] { return w.caller.apollo.GetPropertyString(env); });
    return WithoutReason(result.body + ", code " + std::to_string(result.code) + ", cluster \"" +
                         env.cluster + '"');
  };

  return {
      Variation("General_Get", "header set", ScenariosOf(Kind::kJson),
                [](World& w) {
                  w.caller.general.SetHeaders("X-Header: a value of more than fifteen characters");
                }),
      Variation("General_Get", "no certificates", {Scenario::kNone},
                [](World& w) { w.caller.useSsl = true; }),
      noUrl,
      longUrl,
      Misplaced("DownloadFile", "refused path"),
      Misplaced("UploadLog_Unsigned", "refused path"),
      Misplaced("UploadLogFileForCompress", "no such file"),
      Variation("UploadLog_Unsigned", "pinned address", all,
                [](World& w) { w.caller.service.SetDomainIp("127.0.0.1"); }),
      Variation("UploadLog_Unsigned", "stream of the caller", all,
                [](World& w) { w.caller.service.SetFp(w.caller.stream.get()); }),
      Variation("UploadLog_Unsigned", "speed limit", all,
                [](World& w) { w.caller.service.SetLimitSpeed(1 << 30); }),
      Variation("Service_Get", "bound interface", {Scenario::kAnswer},
                [](World& w) { w.caller.service.SetBindInterface("lo"); }),
      Variation("Service_Get", "bound MAC that nobody has", {Scenario::kAnswer},
                [](World& w) { w.caller.service.SetBindMac(kUnknownMac); }),
      {"GetDomain, no URL",
       [](World& w) {
         const std::string url = "ftp://a-host-of-more-than-fifteen.example/path";
         return w.caller.Try([&] { return LumCurlOrvOps::GetDomain(url); });
       }},
      {"General_SetSslInfo, no pass phrase",
       [](World& w) {
         w.caller.Try([&] { w.caller.general.SetSslInfo("", "", "", nullptr, 0); });
         return std::string("done");
       }},
      {"Service_SetSslInfo, no pass phrase",
       [](World& w) {
         const char* const path = w.caller.text.c_str();
         w.caller.Try([&] { w.caller.service.SetSslInfo(path, path, path, nullptr, 0); });
         return std::string("done");
       }},
  };
}

// Nearly all of its allocations are OpenSSL's, hence its place among the operations over https.
Subject Initialise(const Operation& operation) {
  Subject initialise = SubjectOf(operation);
  initialise.failures = {{"an error", "", Log::kNothing}};
  initialise.fresh = true;
  return initialise;
}

// One operation of each transfer: they all offer the certificate by the same lines.
std::vector<Subject> WithCertificate() {
  std::vector<Subject> subjects;
  for (const char* name :
       {"General_Get", "General_Post", "ReportData", "ReportDataWithGzip_Identifier",
        "RefreshToken", "Service_Get", "UploadLog_Signed"}) {
    subjects.push_back(SubjectOf(OperationNamed(name)));
  }
  for (Subject& subject : subjects) {
    subject.prepare = [](World& w) {  // a pass phrase of LumCurlHttp's serves one request
      w.caller.OfferCertificate(w.tls->caCertificate, w.tls->clientCertificate,
                                w.tls->clientEncryptedKey, kPassPhrase);
      w.caller.useSsl = true;
    };
  }
  return subjects;
}

}  // namespace

std::vector<Subject> Subjects(Connection connection) {
  if (connection == Connection::kCertificate) {
    return WithCertificate();
  }
  const bool plain = connection == Connection::kPlain;
  std::vector<Subject> subjects;
  for (const Operation& operation : Operations()) {
    if (!(plain && operation.NeedsTls())) {
      subjects.push_back(SubjectOf(operation));
    }
  }
  for (const Operation& setting : Settings()) {
    if (setting.name == std::string("General_Initialise")) {
      if (!plain) {
        subjects.push_back(Initialise(setting));
      }
    } else if (plain) {
      subjects.push_back(SubjectOf(setting));
    }
  }
  if (plain) {
    for (Subject& variation : Variations()) {
      subjects.push_back(std::move(variation));
    }
  }
  return subjects;
}

}  // namespace lumtest
