// Issues certificates with OpenSSL's libcrypto.

#include "tls/TlsMaterial.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>

#include "FileDescriptor.h"

namespace lumtools {

namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;
using Memory = std::unique_ptr<BIO, decltype(&BIO_free)>;

constexpr long kHour = 3600;
constexpr long kDay = 24 * kHour;

// A certificate and its key.
struct Identity {
  Key key{nullptr, &EVP_PKEY_free};
  Certificate certificate{nullptr, &X509_free};
};

// What sets one certificate apart from another.
struct Profile {
  const char* commonName;
  const char* basicConstraints;
  const char* keyUsage;
  const char* extendedKeyUsage;  // null: none
  std::string alternativeNames;  // OpenSSL's "DNS:...,IP:..."; "" for none
  long from = -kHour;            // seconds from now
  long until = 365 * kDay;
};

void Require(bool good, const std::string& what) {
  if (!good) {
    const char* reason = ERR_reason_error_string(ERR_peek_last_error());
    std::string message = what;
    if (reason != nullptr) {
      message.append(": ").append(reason);
    }
    ERR_clear_error();
    throw std::runtime_error(message);
  }
}

void Extend(X509* certificate, X509* issuer, int extension, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> made(
      X509V3_EXT_conf_nid(nullptr, &context, extension, value), &X509_EXTENSION_free);
  Require(made != nullptr && X509_add_ext(certificate, made.get(), -1) == 1,
          std::string("certificate extension ") + value);
}

void SetSerial(X509* certificate) {
  const std::unique_ptr<BIGNUM, decltype(&BN_free)> number(BN_new(), &BN_free);
  Require(number != nullptr &&
              BN_rand(number.get(), 127, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) == 1 &&
              BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr,
          "serial number");
}

// Issues what `profile` says; without an `issuer` the certificate signs itself.
Identity Issue(const Profile& profile, const Identity* issuer) {
  Identity made;
  made.key.reset(EVP_EC_gen("P-256"));
  made.certificate.reset(X509_new());
  Require(made.key != nullptr && made.certificate != nullptr, "key pair");
  X509* const certificate = made.certificate.get();
  X509* const issuedBy = issuer != nullptr ? issuer->certificate.get() : certificate;

  SetSerial(certificate);
  X509_NAME* const name = X509_get_subject_name(certificate);
  const auto add = [name](const char* field, const char* value) {
    return X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8,
                                      reinterpret_cast<const unsigned char*>(value), -1, -1,
                                      0) == 1;
  };
  Require(X509_set_version(certificate, X509_VERSION_3) == 1 &&
              X509_gmtime_adj(X509_getm_notBefore(certificate), profile.from) != nullptr &&
              X509_gmtime_adj(X509_getm_notAfter(certificate), profile.until) != nullptr &&
              add("O", "Lum") && add("CN", profile.commonName) &&
              X509_set_issuer_name(certificate, X509_get_subject_name(issuedBy)) == 1 &&
              X509_set_pubkey(certificate, made.key.get()) == 1,
          std::string("certificate of ") + profile.commonName);

  Extend(certificate, issuedBy, NID_basic_constraints, profile.basicConstraints);
  Extend(certificate, issuedBy, NID_key_usage, profile.keyUsage);
  Extend(certificate, issuedBy, NID_subject_key_identifier, "hash");
  if (issuer != nullptr) {
    Extend(certificate, issuedBy, NID_authority_key_identifier, "keyid:always");
  }
  if (profile.extendedKeyUsage != nullptr) {
    Extend(certificate, issuedBy, NID_ext_key_usage, profile.extendedKeyUsage);
  }
  if (!profile.alternativeNames.empty()) {
    Extend(certificate, issuedBy, NID_subject_alt_name, profile.alternativeNames.c_str());
  }
  Require(X509_sign(certificate, issuer != nullptr ? issuer->key.get() : made.key.get(),
                    EVP_sha256()) > 0,
          std::string("signature on the certificate of ") + profile.commonName);
  return made;
}

Profile CaProfile(const char* commonName) {
  return {commonName, "critical,CA:TRUE", "critical,keyCertSign,cRLSign", nullptr, ""};
}

Profile ServerProfile(const char* commonName, const std::string& names) {
  return {commonName, "critical,CA:FALSE", "critical,digitalSignature", "serverAuth", names};
}

Profile ClientProfile(const char* commonName) {
  return {commonName, "critical,CA:FALSE", "critical,digitalSignature", "clientAuth", ""};
}

Profile Expired(Profile profile) {
  profile.from = -30 * kDay;
  profile.until = -kDay;
  return profile;
}

// Puts the files in place.
class Writer {
 public:
  explicit Writer(std::string directory) : m_directory(std::move(directory)) {
    if (mkdir(m_directory.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
      throw std::runtime_error("cannot make " + m_directory + ": " + std::strerror(errno));
    }
  }

  std::string WriteCertificate(const std::string& name, const Identity& identity) const {
    return Write(name, 0644,
                 [&](BIO* pem) { return PEM_write_bio_X509(pem, identity.certificate.get()); });
  }

  // Encrypted where there is a pass phrase.
  std::string WriteKey(const std::string& name, const Identity& identity,
                       const std::string& passPhrase = "") const {
    return Write(name, 0600, [&](BIO* pem) {
      return PEM_write_bio_PKCS8PrivateKey(
          pem, identity.key.get(), passPhrase.empty() ? nullptr : EVP_aes_256_cbc(),
          passPhrase.data(), static_cast<int>(passPhrase.size()), nullptr, nullptr);
    });
  }

  std::string WriteTraditionalKey(const std::string& name, const Identity& identity,
                                  const std::string& passPhrase) const {
    return Write(name, 0600, [&](BIO* pem) {
      return PEM_write_bio_PrivateKey_traditional(
          pem, identity.key.get(), EVP_aes_256_cbc(),
          reinterpret_cast<const unsigned char*>(passPhrase.data()),
          static_cast<int>(passPhrase.size()), nullptr, nullptr);
    });
  }

 private:
  std::string Write(const std::string& name, mode_t mode,
                    const std::function<int(BIO*)>& print) const {
    std::string path = m_directory + "/" + name;
    const Memory pem(BIO_new(BIO_s_mem()), &BIO_free);
    Require(pem != nullptr && print(pem.get()) == 1, "cannot make " + path);
    char* bytes = nullptr;
    const auto size = static_cast<std::size_t>(BIO_get_mem_data(pem.get(), &bytes));
    // A new file: an old one may have another mode, other readers, or be a link to elsewhere.
    if (unlink(path.c_str()) != 0 && errno != ENOENT) {
      throw std::runtime_error("cannot replace " + path + ": " + std::strerror(errno));
    }
    const FileDescriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (!file || fchmod(file.Get(), mode) != 0 || !WriteAll(file.Get(), bytes, size)) {
      throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
    }
    return path;
  }

  std::string m_directory;
};

std::string ServerNames(const std::vector<std::string>& moreNames) {
  std::string names = "IP:127.0.0.1,IP:::1,DNS:localhost";
  for (const std::string& name : moreNames) {
    if (name.empty() || name.find_first_of(", \t\r\n") != std::string::npos) {
      throw std::runtime_error("not a name for a certificate: \"" + name + "\"");
    }
    in6_addr address;
    const bool isAddress = inet_pton(AF_INET, name.c_str(), &address) == 1 ||
                           inet_pton(AF_INET6, name.c_str(), &address) == 1;
    names.append(isAddress ? ",IP:" : ",DNS:").append(name);
  }
  return names;
}

}  // namespace

TlsMaterial MakeTlsMaterial(const std::string& directory, const std::string& passPhrase,
                            const std::vector<std::string>& moreNames) {
  const Writer writer(directory);
  if (passPhrase.empty()) {
    throw std::runtime_error("cannot encrypt keys in " + directory + " without a pass phrase");
  }
  const std::string localhost = ServerNames({});
  TlsMaterial made;

  const auto authority = [&](const char* name, const char* commonName, std::string& certificate) {
    Identity identity = Issue(CaProfile(commonName), nullptr);
    certificate = writer.WriteCertificate(name, identity);
    return identity;
  };
  const Identity ca = authority("ca.pem", "Lum test CA", made.caCertificate);
  const Identity untrustedCa =
      authority("untrusted-ca.pem", "Lum untrusted CA", made.untrustedCaCertificate);

  const auto issue = [&](const std::string& name, const Profile& profile, const Identity& issuer,
                         std::string& certificate, std::string& key) {
    Identity identity = Issue(profile, &issuer);
    certificate = writer.WriteCertificate(name + ".pem", identity);
    key = writer.WriteKey(name + ".key", identity);
    return identity;
  };
  issue("server", ServerProfile("localhost", ServerNames(moreNames)), ca, made.serverCertificate,
        made.serverKey);
  issue("expired-server", Expired(ServerProfile("localhost", localhost)), ca,
        made.expiredServerCertificate, made.expiredServerKey);
  issue("wrong-host-server", ServerProfile("wrong.example", "DNS:wrong.example"), ca,
        made.wrongHostServerCertificate, made.wrongHostServerKey);
  issue("untrusted-server", ServerProfile("localhost", localhost), untrustedCa,
        made.untrustedServerCertificate, made.untrustedServerKey);
  const Identity client =
      issue("client", ClientProfile("Lum test client"), ca, made.clientCertificate, made.clientKey);
  made.clientEncryptedKey = writer.WriteKey("client-encrypted.key", client, passPhrase);
  made.clientTraditionalKey =
      writer.WriteTraditionalKey("client-traditional.key", client, passPhrase);
  issue("expired-client", Expired(ClientProfile("Lum expired client")), ca,
        made.expiredClientCertificate, made.expiredClientKey);
  issue("untrusted-client", ClientProfile("Lum untrusted client"), untrustedCa,
        made.untrustedClientCertificate, made.untrustedClientKey);
  return made;
}

}  // namespace lumtools
