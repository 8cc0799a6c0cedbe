// What the operations of the catalogue make of a reply: any status, any outcome of the transfer, a
// body in pieces of any size with any bytes. endings.txt says what must come of it.
//
// Input: operation, status (2 bytes), outcome, flags, then the error text, then the body's pieces,
// each behind its length.

#include <curl/curl.h>

#include <string>
#include <vector>

#include "../../BaseAPI/LumCurlHttp/test/operations/RunRecorded.h"
#include "Fuzz.h"

using lumtest::FuzzInput;
using lumtest::Kind;
using lumtest::Operation;
using lumtest::Recorder;

namespace {

constexpr char kUrl[] = "https://127.0.0.1/a";
constexpr unsigned kTls = 1;    // with a client certificate
constexpr unsigned kLarge = 2;  // each piece a hundred times over

// The doubles make no archives.
const std::vector<Operation>& Tried() {
  static const std::vector<Operation> tried =
      lumtest::OperationsWhere([](const Operation& each) { return each.kind != Kind::kArchive; });
  return tried;
}

lumtest::Caller& CallerFor(bool tls) {
  static lumtest::Caller plain;
  static lumtest::Caller withCertificate;
  if (!tls) {
    return plain;
  }
  withCertificate.useSsl = true;
  withCertificate.OfferCertificate("/ca.pem", "/client.pem", "/client.key", "pass phrase");
  return withCertificate;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzInput input(data, size);
  const Operation& operation = Tried()[input.Byte() % Tried().size()];
  lumtest::Script script;
  lumtest::Ending ending;
  ending.status = script.status = input.Number();
  script.result = static_cast<CURLcode>(input.Byte() % CURL_LAST);
  ending.code = script.result;
  const unsigned flags = input.Byte();
  // libcurl writes a C string of fewer than CURL_ERROR_SIZE bytes; DownloadFile offers no buffer.
  const std::string errorText = input.Text();
  if (ending.code != 0 && operation.kind != Kind::kDownload) {
    script.errorText = errorText.substr(0, errorText.find('\0'));
  }
  while (!input.AtEnd()) {
    std::string piece = input.Text();
    if ((flags & kLarge) != 0) {
      const std::string once = piece;
      for (int i = 1; i < 100; ++i) {
        piece += once;
      }
    }
    ending.received += piece;
    script.chunks.push_back(std::move(piece));
  }
  if (operation.Uploads()) {
    ending.received.clear();  // it went to standard output
  }

  lumtest::Caller& caller = CallerFor((flags & kTls) != 0);
  Recorder& recorder = Recorder::Get();
  recorder.Reset();
  const lumtest::Outcome outcome = lumtest::RunRecorded(caller, operation, kUrl, script);
  if (!lumtest::Fits(operation, kUrl, outcome, ending)) {
    lumtest::Require(false, lumtest::ShownBlocks(operation, kUrl, outcome, ending).c_str(),
                     __FILE__, __LINE__);
  }
  if (!script.errorText.empty()) {
    LUM_REQUIRE(lumtest::ErrorTextOf(outcome) == script.errorText);
  }
  if (operation.NeedsTls()) {
    recorder.FreeLists();  // the list of every request is kept
  }
  LUM_REQUIRE(recorder.Transfers().size() == 1);
  LUM_REQUIRE(recorder.LiveHandles() == 0 && recorder.LiveLists() == 0 &&
              recorder.LiveFiles() == 0);
  return 0;
}
