// lumbackend: options, TLS material, signals, and the server in between.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <CLI/CLI.hpp>

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/trim.hpp>
#include <cerrno>
#include <csignal>
#include <exception>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

#include "Backend.h"
#include "Options.h"
#include "Server.h"
#include "Tls.h"

namespace {

constexpr int kFailure = 1;
constexpr int kUsage = 2;
constexpr std::size_t kLongestKey = 65536;  // bytes

// The key in a file, without the line end that editors add.
std::string ReadKey(const std::string& path) {
  if (path.empty()) {
    return {};
  }
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  auto key = ReadAll(file.Get(), kLongestKey);
  if (!key) {
    throw std::runtime_error("cannot read the signature key '" + path +
                             "': " + std::generic_category().message(errno));
  }
  boost::algorithm::trim_right_if(*key, boost::algorithm::is_any_of("\r\n"));
  if (key->empty()) {
    throw std::runtime_error("the signature key '" + path + "' is empty");
  }
  return *key;
}

boost::asio::ssl::context MakeContext(const Options& options) {
  if (!options.cert.empty()) {
    return MakeServerContext(options.cert, options.key, options.clientCa);
  }
  const std::string directory = options.tlsDir.empty() ? options.root + "/tls" : options.tlsDir;
  MakeServerFiles(directory, options.bind);
  return MakeServerContext(directory + "/server.pem", directory + "/server.key", options.clientCa);
}

int Serve(const Options& options) {
  // A connection or a file that takes no more is an error of the call, not the end.
  (void)std::signal(SIGPIPE, SIG_IGN);
  (void)std::signal(SIGXFSZ, SIG_IGN);
  Backend backend(options, ReadKey(options.signKeyFile));
  Server server(backend);
  std::string ports;
  if (options.port || !options.tlsPort) {
    ports += "http " + server.Listen(options.bind, options.port.value_or(0), std::nullopt) + "\n";
  }
  if (options.tlsPort) {
    ports += "https " + server.Listen(options.bind, *options.tlsPort, MakeContext(options)) + "\n";
  }
  server.Run([&] { std::cout << ports << std::flush; });
  return 0;
}

// Columns of the terminal that --help is printed on.
std::size_t Width() {
  winsize size = {};
  return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Options options;
    const auto parser = MakeParser(options, Width());
    try {
      parser->parse(argc, argv);
    } catch (const CLI::ParseError& end) {
      // --help and --version end here, too.
      return parser->exit(end) == 0 ? 0 : kUsage;
    }
    return Serve(options);
  } catch (const std::exception& failure) {
    Backend::Complain("lumbackend: " + std::string(failure.what()));
    return kFailure;
  }
}
