// Server contexts of OpenSSL, and the material for them.
#include "Tls.h"

#include <fcntl.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <sys/file.h>

#include <cerrno>
#include <ctime>
#include <stdexcept>
#include <system_error>

#include "RootDir.h"
#include "Text.h"
#include "tls/TlsMaterial.h"

namespace ssl = boost::asio::ssl;

namespace {

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

void Require(const boost::system::error_code& failure, const std::string& what,
             const std::string& file) {
  if (failure) {
    throw std::runtime_error("cannot use " + what + " '" + file + "': " + failure.message());
  }
}

}  // namespace

void MakeServerFiles(const std::string& directory, const std::string& address) {
  const RootDir place(directory);
  // Whoever comes second waits here and finds everything done. Closing the directory unlocks it.
  if (::flock(place.Get(), LOCK_EX) != 0) {
    throw std::runtime_error("cannot lock '" + directory +
                             "': " + std::generic_category().message(errno));
  }
  if (!IsGood(directory + "/server.pem") || !place.Open({"server.key"}).file) {
    const std::string passPhrase = RandomHex(16);
    lumtools::MakeTlsMaterial(directory, passPhrase, {address});
    WritePassPhrase(place, passPhrase);
  }
}

ssl::context MakeServerContext(const std::string& certificate, const std::string& key,
                               const std::string& clientCa) {
  ssl::context context(ssl::context::tls_server);
  SSL_CTX* raw = context.native_handle();
  SSL_CTX_set_min_proto_version(raw, TLS1_2_VERSION);
  SSL_CTX_set_session_cache_mode(raw, SSL_SESS_CACHE_OFF);
  SSL_CTX_set_options(raw, SSL_OP_NO_TICKET | SSL_OP_NO_RENEGOTIATION);
  SSL_CTX_set_num_tickets(raw, 0);
  // Without it OpenSSL would ask on the terminal for the pass phrase of an encrypted key.
  context.set_password_callback([](std::size_t, ssl::context::password_purpose) { return ""; });
  boost::system::error_code failure;
  context.use_certificate_chain_file(certificate, failure);
  Require(failure, "certificate", certificate);
  context.use_private_key_file(key, ssl::context::pem, failure);
  Require(failure, "private key", key);
  if (!clientCa.empty()) {
    context.load_verify_file(clientCa, failure);
    Require(failure, "client authorities", clientCa);
    SSL_CTX_set_client_CA_list(raw, SSL_load_client_CA_file(clientCa.c_str()));
    context.set_verify_mode(ssl::verify_peer | ssl::verify_fail_if_no_peer_cert);
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
