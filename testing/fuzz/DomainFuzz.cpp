// The host of a URL: LumCurlOrvOps::GetDomain, and the entry that an upload is pinned with.

#include <LumCurlOrvOps.h>

#include <string>

#include "Fuzz.h"
#include "recording/Recorder.h"

using lumtest::Recorder;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string url(reinterpret_cast<const char*>(data), size);
  Recorder& recorder = Recorder::Get();
  recorder.Reset();
  const std::string domain = LumCurlOrvOps::GetDomain(url);
  const bool tls = url.find("https://") != std::string::npos;
  const bool plain = url.find("http://") != std::string::npos;
  if (!tls && !plain) {
    LUM_REQUIRE(domain.empty());
    LUM_REQUIRE(recorder.Logs().size() == 1);
    return 0;
  }
  LUM_REQUIRE(recorder.Logs().empty());
  // It stands at a place of its own in the URL and ends before a slash or near the URL's end.
  const std::size_t start = tls ? 8 : 7;
  LUM_REQUIRE(url.compare(start, domain.size(), domain) == 0);
  LUM_REQUIRE(domain.find('/') == std::string::npos);
  const std::size_t end = start + domain.size();
  const bool atSlash = end < url.size() && url[end] == '/';
  LUM_REQUIRE(atSlash || end == url.size() || (!tls && end + 1 == url.size()));

  // C strings end at a zero.
  const std::string sent(url.c_str());
  recorder.Reset();
  {
    LumCurlOrvOps client;
    client.SetDomainIp("127.0.0.1");
    LUM_REQUIRE(client.UploadLog(sent, "/dev/null", 1) == 0);
  }
  const std::string host = LumCurlOrvOps::GetDomain(sent);
  const std::vector<std::string> entry = recorder.Transfers().at(0).resolve;
  LUM_REQUIRE(entry.size() == 1);
  LUM_REQUIRE(entry[0].compare(0, host.size(), host) == 0);
  const std::string address = ":127.0.0.1";
  LUM_REQUIRE(entry[0].size() >= address.size());
  LUM_REQUIRE(entry[0].compare(entry[0].size() - address.size(), address.size(), address) == 0);
  LUM_REQUIRE(recorder.LiveHandles() == 0 && recorder.LiveFiles() == 0);
  recorder.FreeLists();  // kept for the life of the process
  return 0;
}
