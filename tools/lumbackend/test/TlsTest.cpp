// TLS material and contexts.
#include "Tls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "support/Files.h"
#include "support/Threads.h"
#include "tls/TlsMaterial.h"

namespace {

using lumtest::ReadFile;
using testing::HasSubstr;

std::string ProblemOf(const std::string& certificate, const std::string& key,
                      const std::string& clientCa) {
  try {
    MakeServerContext(certificate, key, clientCa);
  } catch (const std::runtime_error& problem) {
    return problem.what();
  }
  return "";
}

TEST(Tls, SelfMadeMaterialIsUsedAgain) {
  const lumtest::TempDir temp;
  const std::string directory = temp.Path("tls");
  const ServerFiles files = SelfMadeServerFiles(directory, "127.0.0.1");
  const std::string first = ReadFile(files.certificate);
  EXPECT_EQ(ProblemOf(files.certificate, files.key, directory + "/ca.pem"), "");
  SelfMadeServerFiles(directory, "127.0.0.1");
  EXPECT_EQ(ReadFile(files.certificate), first);
}

TEST(Tls, ThePassPhraseOpensTheEncryptedKey) {
  const lumtest::TempDir temp;
  SelfMadeServerFiles(temp.Path(), "127.0.0.1");
  EXPECT_EQ(lumtest::FileMode(temp.Path("client-encrypted.pass")), 0600u);
  std::string passPhrase = ReadFile(temp.Path("client-encrypted.pass"));
  ASSERT_EQ(passPhrase.back(), '\n');
  passPhrase.pop_back();
  boost::asio::ssl::context context(boost::asio::ssl::context::tls_client);
  context.set_password_callback([&](auto, auto) { return passPhrase; });
  context.use_certificate_file(temp.Path("client.pem"), boost::asio::ssl::context::pem);
  EXPECT_NO_THROW(context.use_private_key_file(temp.Path("client-encrypted.key"),
                                               boost::asio::ssl::context::pem));
}

TEST(Tls, ExpiredMaterialIsMadeAnew) {
  const lumtest::TempDir temp;
  const lumtools::TlsMaterial made = lumtools::MakeTlsMaterial(temp.Path(), "secret");
  const std::string expired = ReadFile(made.expiredServerCertificate);
  lumtest::WriteFile(temp.Path("server.pem"), expired);
  const ServerFiles files = SelfMadeServerFiles(temp.Path(), "127.0.0.1");
  EXPECT_NE(ReadFile(files.certificate), expired);
  EXPECT_EQ(ProblemOf(files.certificate, files.key, ""), "");
}

TEST(Tls, SeveralMayAskForOneDirectory) {
  const lumtest::TempDir temp;
  std::vector<std::string> certificates(4);
  lumtest::OnThreads(4, [&](int i) {
    certificates[static_cast<std::size_t>(i)] =
        ReadFile(SelfMadeServerFiles(temp.Path("tls"), "127.0.0.1").certificate);
  });
  EXPECT_THAT(certificates, testing::Each(certificates[0]));
}

TEST(Tls, WhatCannotBeUsedIsNamed) {
  const lumtest::TempDir temp;
  const lumtools::TlsMaterial made = lumtools::MakeTlsMaterial(temp.Path(), "secret");
  const std::string none = temp.Path("none.pem");
  EXPECT_THAT(ProblemOf(none, made.serverKey, ""), HasSubstr("certificate '" + none + "'"));
  EXPECT_THAT(ProblemOf(made.serverCertificate, none, ""), HasSubstr("private key '" + none + "'"));
  EXPECT_THAT(ProblemOf(made.serverCertificate, made.clientKey, ""),
              HasSubstr("private key '" + made.clientKey + "'"));
  // An encrypted key is refused, without a question on the terminal.
  EXPECT_THAT(ProblemOf(made.clientCertificate, made.clientEncryptedKey, ""),
              HasSubstr("private key '" + made.clientEncryptedKey + "'"));
  EXPECT_THAT(ProblemOf(made.serverCertificate, made.serverKey, made.serverKey),
              HasSubstr("client authorities '" + made.serverKey + "'"));
}

}  // namespace
