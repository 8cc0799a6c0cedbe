// The uploads of log archives and videos: what they send. What they return and log is
// EndingsTest's.

#include "ServiceTest.h"
#include "support/Files.h"

namespace lumtest {
namespace {

const std::string kUrl = "https://backend.example/address";
const Lines kZip = {"Content-Type: application/zip"};
const Lines kVideo = {"Content-Type: video/mp4"};

class UploadTest : public ServiceTest {
 protected:
  UploadTest() { Forget(); }

  // The events of an upload of the file.
  Events Expected(const Lines& lines, const std::string& timeout) const {
    return UploadEvents(kUrl, path, 4, lines, timeout);
  }

  // The two-argument upload sends these lines.
  void ExpectSignedBy(const Lines& lines) {
    Forget();
    EXPECT_EQ(client.UploadLog(kUrl, path), 0);
    ExpectEvents(Expected(lines, "60"));
  }

  TempDir directory;
  const std::string path = directory.Write("log.tar.gz", "data");
};

TEST_F(UploadTest, CallersLinesAreSentAndNoOther) {
  const Lines lines = {"X-B: 2", "Content-Type: text/plain", "X-A: 1", "X-Empty: "};

  EXPECT_EQ(client.UploadLog(kUrl, path, 7, lines), 0);
  EXPECT_EQ(client.UploadLog(kUrl, path, 8, {}), 0);

  ExpectEvents(Expected(lines, "7") + Expected({}, "8"));
  EXPECT_EQ(recorder.Transfers().at(0).uploaded, "data");
}

TEST_F(UploadTest, ArchiveWithATimeLimitIsAZip) {
  EXPECT_EQ(client.UploadLog(kUrl, path, 0), 0);

  ExpectEvents(Expected(kZip, "0"));
}

TEST_F(UploadTest, VideoIsAnMp4) {
  EXPECT_EQ(client.UploadVideoFile(kUrl, path, 0xFFFFFFFF), 0);

  ExpectEvents(Expected(kVideo, "4294967295"));
}

TEST_F(UploadTest, SettingsAreNotReadByTheFormsThatNameTheirLines) {
  client.SetUploadLogAuthorisation("auth");
  client.SetUploadLogDate("date");
  client.SetSecurityToken("token");
  Forget();

  client.UploadLog(kUrl, path, 7, {});
  client.UploadLog(kUrl, path, 7);
  client.UploadVideoFile(kUrl, path, 7);

  ExpectEvents(Expected({}, "7") + Expected(kZip, "7") + Expected(kVideo, "7"));
}

// --- The upload that the settings sign ---

TEST_F(UploadTest, UnsignedUploadIsAZipWithinSixtySeconds) {
  ExpectSignedBy(kZip);
}

TEST_F(UploadTest, SignedUploadSendsAuthorisationThenDateAndNoContentType) {
  client.SetUploadLogDate("Sat, 21 Nov 2026 13:00:00 GMT");
  client.SetUploadLogAuthorisation("AWS key:signature");

  ExpectSignedBy({"Authorization: AWS key:signature", "Date: Sat, 21 Nov 2026 13:00:00 GMT"});
}

TEST_F(UploadTest, SecurityTokenComesLastInASignedUpload) {
  client.SetSecurityToken("token");
  client.SetUploadLogDate("date");
  client.SetUploadLogAuthorisation("auth");

  ExpectSignedBy({"Authorization: auth", "Date: date", "x-zun-security-token: token"});
}

TEST_F(UploadTest, WithoutADateOrAnAuthorisationNothingOfTheSignatureIsSent) {
  client.SetSecurityToken("token");
  client.SetUploadLogDate("date");
  ExpectSignedBy(kZip);

  client.SetUploadLogAuthorisation("auth");
  client.SetUploadLogDate("");
  ExpectSignedBy(kZip);
}

}  // namespace
}  // namespace lumtest
