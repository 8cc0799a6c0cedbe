// What the command line accepts, refuses and explains.

#include <curl/curlver.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "Lumcurl.h"

namespace lumtest {
namespace {

TEST(Help, ListsEveryCommand) {
  EXPECT_THAT(Lumcurl({"--help"}), Ends(0, IsEmpty()));
  EXPECT_THAT(Commands(), ElementsAre("get", "post", "download", "token", "refresh-token", "report",
                                      "log-address", "service-get", "service-post", "upload-log",
                                      "upload-video", "upload-file", "upload-dir", "upload-group",
                                      "apollo", "completion"));
}

TEST(Help, OfEachCommandEndsInAnExampleAndFitsATerminal) {
  for (const std::string& command : Commands()) {
    const ProcessResult result = Lumcurl({command, "--help"});
    EXPECT_EQ(result.exitStatus, 0) << command;
    EXPECT_THAT(result.err, IsEmpty());
    EXPECT_THAT(result.out, HasSubstr("Usage: lumcurl " + command + " [OPTIONS]"));
    const std::size_t example = result.out.rfind("\nExample:\n");
    ASSERT_NE(example, std::string::npos) << command;
    const std::string lines = result.out.substr(example + 10);
    EXPECT_THAT(lines, HasSubstr("lumcurl " + command + " "));
    EXPECT_THAT(lines, Not(HasSubstr("\n\n"))) << "something stands behind the example";
    for (const std::string& line : LinesOf(result.out)) {
      EXPECT_LE(line.size(), 80u) << command << ": " << line;
    }
  }
}

TEST(Help, ListsTheExitStatuses) {
  const std::string help = Lumcurl({"--help"}).out;
  EXPECT_THAT(help, HasSubstr("\nExit status:\n  0  "));
  for (const char* status : {"1", "2", "4", "5", "6", "7", "8", "9", "129, 130, 143"}) {
    EXPECT_THAT(help, HasSubstr(std::string("\n  ") + status + "  "));
  }
}

// A help text without its line breaks.
std::string Unwrapped(const std::string& help) {
  std::string text;
  std::istringstream words(help);
  for (std::string word; words >> word;) {
    text += (text.empty() ? "" : " ") + word;
  }
  return text;
}

TEST(Help, OfApolloSaysThatTheServerIsNotVerifiedAndSpeaksIpv4) {
  const std::string help = Unwrapped(Lumcurl({"apollo", "--help"}).out);
  EXPECT_THAT(help, HasSubstr("The server is not verified"));
  EXPECT_THAT(help, HasSubstr("the server that they come from is not verified"));
  EXPECT_THAT(help, HasSubstr("looked up for IPv4 alone"));
  EXPECT_THAT(help, Not(HasSubstr("IPv6")));
}

TEST(Help, OfVerboseSaysWhoseLinesItShows) {
  EXPECT_THAT(Unwrapped(Lumcurl({"get", "--help"}).out),
              HasSubstr("Show the head of the request as far as the library sets it"));
}

TEST(Help, OfDownloadSaysThatTheStatusIsNotVisible) {
  EXPECT_THAT(Lumcurl({"download", "--help"}).out, HasSubstr("status is not visible"));
}

TEST(Version, NamesToolLibraryAndLibcurl) {
  const ProcessResult result = Lumcurl({"--version"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_THAT(result.out, StartsWith("lumcurl " LUM_VERSION "\nlibLumCurlHttp " LUM_VERSION
                                     "\nlibcurl/" LIBCURL_VERSION " "));
  EXPECT_THAT(result.err, IsEmpty());
}

const char kUrl[] = "http://127.0.0.1:9/p";  // nothing is ever sent there

struct Refusal {
  Words arguments;
  const char* message;
};

const Refusal kRefusals[] = {
    {{}, "--help' shows the commands"},
    {{"fetch", kUrl}, "'fetch' is no command"},
    {{"get", "--fast", kUrl}, "get: unknown option --fast\n"},
    {{"get", "-o", "f", kUrl}, "get: unknown option -o\n"},
    {{"post", "--out=f", "-d", "-x", kUrl}, "post: unknown option --out\n"},
    {{"get", "-vqk", kUrl}, "get: unknown option -k\n"},
    {{"post", "-d", "--data", "-L", kUrl}, "post: unknown option -L\n"},
    {{"-v", "get", kUrl},
     "unknown option -v\nlumcurl: 'lumcurl --help' shows the commands; a command's "
     "options stand behind it\n"},
    {{"get", kUrl, "--cacert"}, "get: the option --cacert needs a value: FILE\n"},
    {{"get", kUrl, kUrl}, "too many operands"},
    {{"get"}, "URL is required"},
    {{"get", ""}, "the URL is empty"},
    {{"download", "", "/tmp/x"}, "the URL is empty"},
    {{"get", "ftp://h/"}, "must begin with http:// or https://"},
    {{"download", "h/p", "x"}, "must begin with http:// or https://"},
    {{"post", "-d", "1", "http:///p"}, "names no host"},
    {{"get", "http://h/a b"}, "percent-encode"},
    {{"get", "http://h/a\nb"}, "percent-encode"},
    {{"get", "http://127.0.0.1:99999/"}, "correct the URL"},
    {{"post", kUrl}, "--data-file"},
    {{"post", "-d", "1", "--data-file", "f", kUrl}, "excludes"},
    {{"get", "--ssl", "https://h/"}, "--ssl requires"},
    {{"get", "--cert", "c", "https://h/"}, "requires --ssl"},
    {{"get", "--ssl", "--cacert", "a", "--cert", "b", "--key", "c", kUrl},
     "does not begin with https://"},
    {{"get", "-H", "A: 1", "-H", "B: 2", kUrl}, "service-get"},
    {{"get", "-H", "A: 1\r\nB: 2", kUrl}, "line break"},
    {{"get", "-H", "A: 1\nB: 2", kUrl}, "line break"},
    {{"service-get", "-H", "A", kUrl}, "Name: value"},
    {{"get", "-H", "", kUrl}, "Name: value"},
    {{"get", "-H", ": x", kUrl}, "Name: value"},
    {{"get", "-H", "A B: x", kUrl}, "Name: value"},
    {{"get", "-H", "A:", kUrl}, "a blank behind it sends it empty"},
    {{"get", "-H", "@/dev/null", kUrl}, "/dev/null holds no header line"},
    {{"get", "-H", "@/dev/zero", kUrl}, "'/dev/zero' is longer than 1048576 bytes"},
    {{"download", "--cert", "c", kUrl, "x"}, "get and post"},
    {{"download", "-H", "A: 1", kUrl, "x"}, "get and post"},
    {{"token", kUrl}, "--data-file"},
    {{"token", "-d", "{}", kUrl}, "lumcurl token --help"},
    {{"report", "-d", "{", kUrl}, "no JSON document"},
    {{"report", "--data-file", "/dev/null", kUrl}, "/dev/null is no JSON document"},
    {{"report", "-d", "{}", "--token-file", "/dev/zero", kUrl},
     "'/dev/zero' is longer than 1048576 bytes"},
    {{"report", "-d", "[]", "--topic", "t", kUrl}, "--topic needs a JSON object"},
    {{"report", "-d", "{}", "--access-id", "a", kUrl}, "requires --gzip"},
    {{"report", "-d", "{}", "--gzip", "--timeout", "3", kUrl}, "excludes"},
    {{"report", "-d", "{}", "--timeout", "-1", kUrl}, "--timeout"},
    {{"report", "-d", "{}", "--gzip", "--access-id", "a\nb", kUrl}, "line break"},
    {{"report", "-d", "{\"accessId\":\"a\\r\\nX: y\"}", "--gzip", kUrl}, "line break"},
    {{"log-address", "--access-id", "a", kUrl}, "--file-name"},
    {{"log-address", "--access-id", "a", "--file-name", "n", "http://h/p?x=1"}, "no query"},
    {{"log-address", "--access-id", "a", "--file-name", "n m", kUrl}, "percent-encoded"},
    {{"log-address", "--access-id", "a", "--file-name", "n&m", kUrl}, "percent-encoded"},
    {{"service-get", "--interface", "lo", "--mac", "00:00:00:00:00:00", kUrl}, "excludes"},
    {{"service-get", "--mac", "00:00", kUrl}, "no MAC address"},
    {{"service-get", "--cert", "c", kUrl}, "--key"},
    {{"service-get", "--pass-file", "p", kUrl}, "--key"},
    {{"upload-video", "--pin-ip", "localhost", kUrl, "f"}, "numeric"},
    {{"upload-video", "--pin-ip", "127.0.0.1", "http://h", "/proc/self/exe"},
     "--pin-ip needs a URL"},
    {{"upload-video", "--limit-rate", "fast", kUrl, "f"}, "500K"},
    {{"upload-video", "--limit-rate", "5Kx", kUrl, "f"}, "500K"},
    {{"upload-video", "--timeout", "2147484", kUrl, "f"},
     "'2147484' is no number of seconds from 0 to 2147483"},
    {{"get", "--color", "red", kUrl}, "auto,always,never"},
    {{"apollo", "--prefix", "A_", "h", "a", "n"}, "--env-file"},
    {{"apollo", "--env-file", "--prefix", "1A", "h", "a", "n"},
     "cannot begin the name of a variable"},
    {{"upload-video", "--limit-rate", "3G", kUrl, "f"}, "--limit-rate"},
    {{"upload-video", "--limit-rate", "0", kUrl, "f"}, "--limit-rate"},
    {{"upload-log", "--sign-key-file", "k", "-H", "A: 1", kUrl, "f"}, "excludes"},
    {{"upload-log", "--sign-key-file", "k", "--timeout", "3", kUrl, "f"}, "excludes"},
    {{"upload-file", "--sign-key-file", "k", "--authorisation-file", "a", "--date", "d", kUrl, "f"},
     "excludes"},
    {{"upload-file", "--authorisation-file", "a", kUrl, "f"}, "requires --date"},
    {{"upload-log", "--date", "today", kUrl, LUMCURL}, "belong to a signed upload"},
    {{"upload-log", "--date", "a\nb", "--sign-key-file", "k", kUrl, "f"}, "line break"},
    {{"upload-group", kUrl}, "FILE is required"},
    {{"apollo", "https://h", "a", "n"}, "without a scheme"},
    {{"apollo", "h/x", "a", "n"}, "HOST:PORT"},
    {{"apollo", "h", "a"}, "NAMESPACE is required"},
    {{"apollo", "h", "a", "n/m"}, "percent-encoded"},
    {{"apollo", "h", "", "n"}, "empty"},
    {{"apollo", "h", "a", std::string(4090, 'n')}, "4095"},
    {{"apollo", "--key", "k", "--env-file", "h", "a", "n"}, "excludes"},
    {{"completion", "csh"}, "bash"}};

TEST(Usage, IsExplained) {
  for (const Refusal& row : kRefusals) {
    const ProcessResult result = Lumcurl(row.arguments);
    EXPECT_THAT(result, Ends(2, AllOf(StartsWith("lumcurl: "), HasSubstr(row.message))))
        << ShellWords(row.arguments);
    EXPECT_THAT(result.out, IsEmpty()) << ShellWords(row.arguments);
  }
}

TEST(Usage, IsExplainedWhenQuietToo) {
  EXPECT_THAT(Lumcurl({"get", "-q", ""}), Ends(2, HasSubstr("the URL is empty")));
}

}  // namespace
}  // namespace lumtest
