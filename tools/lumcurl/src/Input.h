// What commands read: bodies, header lines and secrets, from files, standard input or the
// environment.

#ifndef LUM_LUMCURL_INPUT_H
#define LUM_LUMCURL_INPUT_H

#include <cstring>
#include <string>
#include <vector>

#include "Console.h"
#include "LumJson.h"
#include "Options.h"

// The body of -d or --data-file. Warns of a file that others can read. Throws Failure: kUsage when
// there is neither, kFile when the file cannot be read.
std::string ReadBody(const Options& options, Console& console);

// ReadBody as a JSON document; kUsage when it is none.
LumJson::Value ReadDocument(const Options& options, Console& console);

// At most the first `limit` bytes of a file; "" when it cannot be read.
std::string ReadStart(const std::string& path, std::size_t limit);

// The lines of the -H options, those of @FILE in the file's order. Masks the secrets in them, warns
// of secrets that stood on the command line. Throws Failure: kUsage for what is no header line,
// kFile when a file cannot be read.
std::vector<std::string> ReadHeaders(const Options& options, Console& console);

// The secret in `file`, or in the environment's `variable` when `file` is empty, or "" when there
// is none; null `variable`: only in the file. One line break at the end does not count. `what`
// names it in messages. Warns of a file that others can read, and hides the secret in later output.
// Throws Failure: kFile when the file cannot be read, kUsage when the text holds a line break or a
// zero byte.
std::string ReadSecret(const std::string& what, const std::string& file, const char* variable,
                       Console& console);

// The pass phrase of --key, of at most 2048 bytes. Warns of a key without one that others can read.
std::string ReadKeyPass(const Options& options, Console& console);

// Hides in later output what the URL and a request document carry as secrets.
void MaskSecrets(const std::string& url, Console& console);
void MaskSecrets(const LumJson::Value& document, Console& console);

// Why `path` cannot be read, or written to, as a regular file; "" when it can.
std::string ReadProblem(const std::string& path);
std::string WriteProblem(const std::string& path);

// Throws Failure kFile when ReadProblem has a reason; `option` names the file where one does.
void RequireReadable(const std::string& path, const std::string& option = "");

// Hands the client certificate, and what belongs to it, to a client of the library. Throws Failure
// for files that cannot be read and pass phrases that cannot be used.
template <typename Client>
void SetCertificate(Client& client, const Options& options, Console& console) {
  if (!options.caCert.empty()) {
    RequireReadable(options.caCert, "--cacert");
  }
  RequireReadable(options.cert, "--cert");
  RequireReadable(options.key, "--key");
  std::string pass = ReadKeyPass(options, console);
  client.SetSslInfo(options.caCert, options.cert, options.key,
                    reinterpret_cast<unsigned char*>(pass.data()), static_cast<int>(pass.size()));
  explicit_bzero(pass.data(), pass.size());
}

#endif  // LUM_LUMCURL_INPUT_H
