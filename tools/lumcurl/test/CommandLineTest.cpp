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

struct Refusal {
  const char* name;
  Words arguments;
  const char* message;
};

class Usage : public testing::TestWithParam<Refusal> {};

TEST_P(Usage, IsExplained) {
  const ProcessResult result = Lumcurl(GetParam().arguments);
  EXPECT_EQ(result.exitStatus, 2) << result.Describe();
  EXPECT_THAT(result.out, IsEmpty());
  EXPECT_THAT(result.err, HasSubstr(GetParam().message));
  EXPECT_THAT(result.err, StartsWith("lumcurl: "));
}

const char kUrl[] = "http://127.0.0.1:9/p";  // nothing is ever sent there

INSTANTIATE_TEST_SUITE_P(
    Refused, Usage,
    testing::Values(
        Refusal{"NoCommand", {}, "--help' shows the commands"},
        Refusal{"UnknownCommand", {"fetch", kUrl}, "'fetch' is no command"},
        Refusal{"UnknownOption", {"get", "--fast", kUrl}, "get: unknown option --fast\n"},
        Refusal{"UnknownOptionWithValue", {"get", "-o", "f", kUrl}, "get: unknown option -o\n"},
        Refusal{"UnknownOptionWithItsValue",
                {"post", "--out=f", "-d", "-x", kUrl},
                "post: unknown option --out\n"},
        Refusal{"UnknownOptionAmongFlags", {"get", "-vqk", kUrl}, "get: unknown option -k\n"},
        Refusal{"UnknownOptionBehindAValue",
                {"post", "-d", "--data", "-L", kUrl},
                "post: unknown option -L\n"},
        Refusal{"OptionBeforeTheCommand",
                {"-v", "get", kUrl},
                "unknown option -v\nlumcurl: 'lumcurl --help' shows the commands; a command's "
                "options stand behind it\n"},
        Refusal{"OptionWithoutItsValue",
                {"get", kUrl, "--cacert"},
                "get: the option --cacert needs a value: FILE\n"},
        Refusal{"TooManyOperands", {"get", kUrl, kUrl}, "too many operands"},
        Refusal{"NoUrl", {"get"}, "URL is required"},
        Refusal{"EmptyUrl", {"get", ""}, "the URL is empty"},
        Refusal{"EmptyUrlToDownload", {"download", "", "/tmp/x"}, "the URL is empty"},
        Refusal{"OtherScheme", {"get", "ftp://h/"}, "must begin with http:// or https://"},
        Refusal{"NoScheme", {"download", "h/p", "x"}, "must begin with http:// or https://"},
        Refusal{"NoHost", {"post", "-d", "1", "http:///p"}, "names no host"},
        Refusal{"BlankInUrl", {"get", "http://h/a b"}, "percent-encode"},
        Refusal{"LineBreakInUrl", {"get", "http://h/a\nb"}, "percent-encode"},
        Refusal{"BadPort", {"get", "http://127.0.0.1:99999/"}, "correct the URL"},
        Refusal{"NoBody", {"post", kUrl}, "--data-file"},
        Refusal{"TwoBodies", {"post", "-d", "1", "--data-file", "f", kUrl}, "excludes"},
        Refusal{"SslWithoutFiles", {"get", "--ssl", "https://h/"}, "--ssl requires"},
        Refusal{"FilesWithoutSsl", {"get", "--cert", "c", "https://h/"}, "requires --ssl"},
        Refusal{"SslOverPlainHttp",
                {"get", "--ssl", "--cacert", "a", "--cert", "b", "--key", "c", kUrl},
                "does not begin with https://"},
        Refusal{"TwoHeaderLinesForGet", {"get", "-H", "A: 1", "-H", "B: 2", kUrl}, "service-get"},
        Refusal{"HeaderWithLineBreak", {"get", "-H", "A: 1\r\nB: 2", kUrl}, "line break"},
        Refusal{"HeaderWithoutColon", {"service-get", "-H", "A", kUrl}, "Name: value"},
        Refusal{"EmptyHeader", {"get", "-H", "", kUrl}, "Name: value"},
        Refusal{"CertificateToDownload", {"download", "--cert", "c", kUrl, "x"}, "get and post"},
        Refusal{"HeaderToDownload", {"download", "-H", "A: 1", kUrl, "x"}, "get and post"},
        Refusal{"NoRequestDocument", {"token", kUrl}, "--data-file"},
        Refusal{"RequestOnCommandLine", {"token", "-d", "{}", kUrl}, "lumcurl token --help"},
        Refusal{"ReportThatIsNoJson", {"report", "-d", "{", kUrl}, "no JSON document"},
        Refusal{"TopicForAnArray",
                {"report", "-d", "[]", "--topic", "t", kUrl},
                "--topic needs a JSON object"},
        Refusal{"AccessIdWithoutGzip",
                {"report", "-d", "{}", "--access-id", "a", kUrl},
                "requires --gzip"},
        Refusal{"TimeoutWithGzip",
                {"report", "-d", "{}", "--gzip", "--timeout", "3", kUrl},
                "excludes"},
        Refusal{"NegativeTimeout", {"report", "-d", "{}", "--timeout", "-1", kUrl}, "--timeout"},
        Refusal{"LineBreakInAccessId",
                {"report", "-d", "{}", "--gzip", "--access-id", "a\nb", kUrl},
                "line break"},
        Refusal{"LineBreakInTheDocumentsAccessId",
                {"report", "-d", "{\"accessId\":\"a\\r\\nX: y\"}", "--gzip", kUrl},
                "line break"},
        Refusal{"LogAddressWithoutName", {"log-address", "--access-id", "a", kUrl}, "--file-name"},
        Refusal{"LogAddressWithQuery",
                {"log-address", "--access-id", "a", "--file-name", "n", "http://h/p?x=1"},
                "no query"},
        Refusal{"LogAddressNameWithBlank",
                {"log-address", "--access-id", "a", "--file-name", "n m", kUrl},
                "percent-encoded"},
        Refusal{"LogAddressNameWithAmpersand",
                {"log-address", "--access-id", "a", "--file-name", "n&m", kUrl},
                "percent-encoded"},
        Refusal{"InterfaceAndMac",
                {"service-get", "--interface", "lo", "--mac", "00:00:00:00:00:00", kUrl},
                "excludes"},
        Refusal{"BadMac", {"service-get", "--mac", "00:00", kUrl}, "no MAC address"},
        Refusal{"CertWithoutKey", {"service-get", "--cert", "c", kUrl}, "--key"},
        Refusal{"PassWithoutKey", {"service-get", "--pass-file", "p", kUrl}, "--key"},
        Refusal{"PinnedToAName", {"upload-video", "--pin-ip", "localhost", kUrl, "f"}, "numeric"},
        Refusal{"PinnedUrlWithoutPath",
                {"upload-video", "--pin-ip", "127.0.0.1", "http://h", "/proc/self/exe"},
                "--pin-ip needs a URL"},
        Refusal{"RateThatIsNone", {"upload-video", "--limit-rate", "fast", kUrl, "f"}, "500K"},
        Refusal{"RateWithTail", {"upload-video", "--limit-rate", "5Kx", kUrl, "f"}, "500K"},
        Refusal{"TimeoutTooLong",
                {"upload-video", "--timeout", "2147484", kUrl, "f"},
                "'2147484' is no number of seconds from 0 to 2147483"},
        Refusal{"Colour", {"get", "--color", "red", kUrl}, "auto,always,never"},
        Refusal{"PrefixWithoutEnvFile", {"apollo", "--prefix", "A_", "h", "a", "n"}, "--env-file"},
        Refusal{"PrefixThatNoVariableHas",
                {"apollo", "--env-file", "--prefix", "1A", "h", "a", "n"},
                "cannot begin the name of a variable"},
        Refusal{"RateTooHigh", {"upload-video", "--limit-rate", "3G", kUrl, "f"}, "--limit-rate"},
        Refusal{"RateZero", {"upload-video", "--limit-rate", "0", kUrl, "f"}, "--limit-rate"},
        Refusal{"SignatureAndHeaders",
                {"upload-log", "--sign-key-file", "k", "-H", "A: 1", kUrl, "f"},
                "excludes"},
        Refusal{"SignatureAndTimeout",
                {"upload-log", "--sign-key-file", "k", "--timeout", "3", kUrl, "f"},
                "excludes"},
        Refusal{"TwoSignatures",
                {"upload-file", "--sign-key-file", "k", "--authorisation-file", "a", "--date", "d",
                 kUrl, "f"},
                "excludes"},
        Refusal{"AuthorisationWithoutDate",
                {"upload-file", "--authorisation-file", "a", kUrl, "f"},
                "requires --date"},
        Refusal{"DateAlone",
                {"upload-log", "--date", "today", kUrl, LUMCURL},
                "belong to a signed upload"},
        Refusal{"DateWithLineBreak",
                {"upload-log", "--date", "a\nb", "--sign-key-file", "k", kUrl, "f"},
                "line break"},
        Refusal{"GroupOfNothing", {"upload-group", kUrl}, "FILE is required"},
        Refusal{"ApolloWithScheme", {"apollo", "https://h", "a", "n"}, "without a scheme"},
        Refusal{"ApolloWithPath", {"apollo", "h/x", "a", "n"}, "HOST:PORT"},
        Refusal{"ApolloWithoutNamespace", {"apollo", "h", "a"}, "NAMESPACE is required"},
        Refusal{"ApolloSlashInNamespace", {"apollo", "h", "a", "n/m"}, "percent-encoded"},
        Refusal{"ApolloEmptyApp", {"apollo", "h", "", "n"}, "empty"},
        Refusal{"ApolloUrlTooLong", {"apollo", "h", "a", std::string(4090, 'n')}, "4095"},
        Refusal{"ApolloKeyAndEnvFile",
                {"apollo", "--key", "k", "--env-file", "h", "a", "n"},
                "excludes"},
        Refusal{"OtherShell", {"completion", "csh"}, "bash"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(Usage, IsExplainedWhenQuietToo) {
  EXPECT_THAT(Lumcurl({"get", "-q", ""}), Ends(2, HasSubstr("the URL is empty")));
}

}  // namespace
}  // namespace lumtest
