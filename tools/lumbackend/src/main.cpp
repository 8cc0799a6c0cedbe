// lumbackend: options, TLS material, signals, and the server in between.
#include <fcntl.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <CLI/CLI.hpp>

#include <cerrno>
#include <exception>
#include <iostream>
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

// A descriptor that is readable from the first SIGINT or SIGTERM on: the signal stays pending, so
// every thread that polls the descriptor learns of it.
FileDescriptor StopOnSignals() {
  if (::signal(SIGPIPE, SIG_IGN) == SIG_ERR) {
    throw std::runtime_error("cannot ignore SIGPIPE");
  }
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  if (pthread_sigmask(SIG_BLOCK, &signals, nullptr) != 0) {
    throw std::runtime_error("cannot block signals");
  }
  FileDescriptor stop(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!stop) {
    throw std::system_error(errno, std::generic_category(), "signalfd");
  }
  return stop;
}

// The key in a file, without the line end that editors add.
std::string ReadKey(const std::string& path) {
  if (path.empty()) {
    return {};
  }
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  const auto content = ReadAll(file.Get(), kLongestKey);
  if (!content) {
    throw std::runtime_error("cannot read the signature key '" + path +
                             "': " + std::generic_category().message(errno));
  }
  std::string key = *content;
  while (!key.empty() && (key.back() == '\n' || key.back() == '\r')) {
    key.pop_back();
  }
  if (key.empty()) {
    throw std::runtime_error("the signature key '" + path + "' is empty");
  }
  return key;
}

SslContext MakeContext(const Options& options) {
  ServerFiles files{options.cert, options.key};
  if (files.certificate.empty()) {
    const std::string directory = options.tlsDir.empty() ? options.root + "/tls" : options.tlsDir;
    files = SelfMadeServerFiles(directory, options.bind);
  }
  return MakeServerContext(files.certificate, files.key, options.clientCa);
}

int Serve(const Options& options) {
  const FileDescriptor stop = StopOnSignals();
  Backend backend(options, ReadKey(options.signKeyFile));
  Server server(backend, stop.Get());
  std::string ports;
  if (options.port || !options.tlsPort) {
    ports += "http " + server.Listen(options.bind, options.port.value_or(0), nullptr) + "\n";
  }
  if (options.tlsPort) {
    ports += "https " + server.Listen(options.bind, *options.tlsPort, MakeContext(options)) + "\n";
  }
  std::cout << ports << std::flush;
  server.Run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Options options;
    const auto parser = MakeParser(options);
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
