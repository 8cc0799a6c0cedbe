// Certificates and keys, good and bad ones, made when they are needed.

#ifndef LUM_TOOLS_COMMON_TLS_TLSMATERIAL_H
#define LUM_TOOLS_COMMON_TLS_TLSMATERIAL_H

#include <string>
#include <vector>

namespace lumtools {

// Paths of PEM files. All keys are on the curve P-256.
struct TlsMaterial {
  // The CA that everything below was issued by, unless it says otherwise.
  std::string caCertificate;

  // A good server: 127.0.0.1, ::1, localhost and the names asked for.
  std::string serverCertificate;
  std::string serverKey;

  // Servers with one thing wrong with each: ran out yesterday; is for wrong.example only; comes
  // from a CA of its own.
  std::string expiredServerCertificate;
  std::string expiredServerKey;
  std::string wrongHostServerCertificate;
  std::string wrongHostServerKey;
  std::string untrustedCaCertificate;
  std::string untrustedServerCertificate;
  std::string untrustedServerKey;

  // A good client, subject "CN=Lum test client,O=Lum", with one key in three forms: plain; as
  // PKCS#8 encrypted with AES-256 under the pass phrase; in OpenSSL's traditional form, encrypted
  // likewise.
  std::string clientCertificate;
  std::string clientKey;
  std::string clientEncryptedKey;
  std::string clientTraditionalKey;

  // Clients that a server refuses: ran out yesterday; comes from the untrusted CA.
  std::string expiredClientCertificate;
  std::string expiredClientKey;
  std::string untrustedClientCertificate;
  std::string untrustedClientKey;
};

// Makes all of it in `directory`, which is made too (mode 0700) if only its last part is missing;
// files of an earlier call are replaced. Key files get mode 0600, certificates 0644. Certificates
// are good from an hour ago for a year.
//
// `passPhrase` must not be empty. Each of `moreNames`, a DNS name or an IP address, is added to the
// good server's names.
//
// Throws std::runtime_error that names the file. What was made before the failure stays. Several
// threads may call it at a time, with a directory each.
TlsMaterial MakeTlsMaterial(const std::string& directory, const std::string& passPhrase,
                            const std::vector<std::string>& moreNames = {});

}  // namespace lumtools

#endif  // LUM_TOOLS_COMMON_TLS_TLSMATERIAL_H
