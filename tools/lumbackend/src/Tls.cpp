// Server contexts of OpenSSL, and the material for them.
#include "Tls.h"

#include <fcntl.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <sys/file.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <stdexcept>
#include <system_error>

#include "RootDir.h"
#include "Text.h"
#include "tls/TlsMaterial.h"

namespace {

// Without a callback OpenSSL would ask on the terminal for the pass phrase of an encrypted key.
int RefusePassPhrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*user*/) {
  return 0;
}

constexpr std::time_t kSpare = 86400;  // seconds that material must still be good for
constexpr char kPassFile[] = "client-encrypted.pass";

// True when the certificate at `path` can be read and is good for a while.
bool IsGood(const std::string& path) {
  BIO* file = BIO_new_file(path.c_str(), "r");
  X509* certificate =
      file == nullptr ? nullptr : PEM_read_bio_X509(file, nullptr, nullptr, nullptr);
  std::time_t then = std::time(nullptr) + kSpare;
  const bool good =
      certificate != nullptr && X509_cmp_time(X509_get0_notAfter(certificate), &then) > 0;
  X509_free(certificate);
  BIO_free(file);
  ERR_clear_error();
  return good;
}

// Writes a new pass phrase next to the keys that it opens.
void WritePassPhrase(const RootDir& directory, const std::string& passPhrase) {
  const FileDescriptor file(::openat(directory.Get(), kPassFile,
                                     O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
  const std::string line = passPhrase + "\n";
  if (!file || !WriteAll(file.Get(), line.data(), line.size())) {
    throw std::runtime_error("cannot write '" + directory.Path() + "/" + kPassFile +
                             "': " + std::generic_category().message(errno));
  }
}

void Require(bool done, const std::string& what, const std::string& file) {
  if (!done) {
    throw std::runtime_error("cannot use " + what + " '" + file + "': " + TakeSslError());
  }
}

}  // namespace

std::string TakeSslError() {
  // The first entry is the cause, later ones tell what could not be done because of it.
  const unsigned long code = ERR_get_error();
  const char* reason = code == 0 ? nullptr : ERR_reason_error_string(code);
  std::string text = reason == nullptr ? "unknown reason" : reason;
  ERR_clear_error();
  return text;
}

ServerFiles SelfMadeServerFiles(const std::string& directory, const std::string& address) {
  const RootDir place(directory);
  // Whoever comes second waits here and finds everything done. Closing the directory unlocks it.
  if (::flock(place.Get(), LOCK_EX) != 0) {
    throw std::runtime_error("cannot lock '" + directory +
                             "': " + std::generic_category().message(errno));
  }
  ServerFiles files{directory + "/server.pem", directory + "/server.key"};
  if (!IsGood(files.certificate) || !place.Open({"server.key"}).file) {
    std::array<unsigned char, 16> bytes = {};
    Require(RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) == 1, "pass phrase for",
            directory);
    const std::string passPhrase = ToHex(bytes.data(), bytes.size());
    lumtest::MakeTlsMaterial(directory, passPhrase, {address});
    WritePassPhrase(place, passPhrase);
  }
  return files;
}

SslContext MakeServerContext(const std::string& certificate, const std::string& key,
                             const std::string& clientCa) {
  ERR_clear_error();
  SslContext context(SSL_CTX_new(TLS_server_method()));
  if (!context) {
    throw std::runtime_error("cannot set up TLS: " + TakeSslError());
  }
  SSL_CTX* raw = context.get();
  SSL_CTX_set_min_proto_version(raw, TLS1_2_VERSION);
  SSL_CTX_set_session_cache_mode(raw, SSL_SESS_CACHE_OFF);
  SSL_CTX_set_options(raw, SSL_OP_NO_TICKET | SSL_OP_NO_RENEGOTIATION);
  SSL_CTX_set_num_tickets(raw, 0);
  SSL_CTX_set_mode(raw, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
  SSL_CTX_set_default_passwd_cb(raw, RefusePassPhrase);

  Require(SSL_CTX_use_certificate_chain_file(raw, certificate.c_str()) == 1, "certificate",
          certificate);
  Require(SSL_CTX_use_PrivateKey_file(raw, key.c_str(), SSL_FILETYPE_PEM) == 1, "private key", key);
  Require(SSL_CTX_check_private_key(raw) == 1, "private key", key);
  if (!clientCa.empty()) {
    Require(SSL_CTX_load_verify_file(raw, clientCa.c_str()) == 1, "client authorities", clientCa);
    STACK_OF(X509_NAME)* names = SSL_load_client_CA_file(clientCa.c_str());
    Require(names != nullptr, "client authorities", clientCa);
    SSL_CTX_set_client_CA_list(raw, names);
    SSL_CTX_set_verify(raw, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
  }
  return context;
}

std::string ClientSubject(const SSL* ssl) {
  const X509* certificate = SSL_get0_peer_certificate(ssl);
  if (certificate == nullptr) {
    return {};
  }
  BIO* memory = BIO_new(BIO_s_mem());
  if (memory == nullptr) {
    return {};
  }
  X509_NAME_print_ex(memory, X509_get_subject_name(certificate), 0,
                     XN_FLAG_ONELINE & ~ASN1_STRFLGS_ESC_MSB & ~XN_FLAG_SPC_EQ);
  char* text = nullptr;
  const long size = BIO_get_mem_data(memory, &text);
  std::string subject(text, size > 0 ? static_cast<std::size_t>(size) : 0);
  BIO_free(memory);
  return subject;
}
