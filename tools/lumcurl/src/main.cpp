// lumcurl: options, signals, and the command in between.

#include <curl/curl.h>
#include <fcntl.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <exception>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "Commands.h"
#include "Input.h"
#include "Interrupt.h"
#include "LumCurlHttp.h"
#include "LumLogger.h"

namespace {

Exit Run(const Options& options, Console& console) {
  static const std::map<std::string, Exit (*)(const Options&, Console&)> kCommands = {
      {"get", &RunGetOrPost},
      {"post", &RunGetOrPost},
      {"download", &RunDownload},
      {"token", &RunToken},
      {"refresh-token", &RunToken},
      {"report", &RunReport},
      {"log-address", &RunLogAddress},
      {"service-get", &RunServiceGetOrPost},
      {"service-post", &RunServiceGetOrPost},
      {"upload-log", &RunUpload},
      {"upload-video", &RunUpload},
      {"upload-file", &RunUploadFile},
      {"upload-dir", &RunUploadDirectory},
      {"upload-group", &RunUploadGroup},
      {"apollo", &RunApollo}};
  LumLogger::GetInstance().SetLevel(LumLogger::kSilent);  // the command says what went wrong
  if (LumCurlHttp::CurlGlobalInit() != 0) {
    throw Failure(Exit::kOther, "libcurl cannot be initialised");
  }
  MaskSecrets(options.url, console);
  return kCommands.at(options.command)(options, console);
}

Exit ReportUsage(Console& console, const CLI::App& parser, const std::vector<std::string>& words,
                 const std::string& error) {
  const std::string first = words.empty() ? "" : words.front();
  if (CommandNamed(parser, first) != nullptr) {
    console.Error(first + ": " + error);
    console.Error("'lumcurl " + first + " --help' shows what can be given");
    return Exit::kUsage;
  }
  const bool isOption = !first.empty() && first[0] == '-';
  console.Error(first.empty() || isOption ? error : "'" + first + "' is no command");
  console.Error(std::string("'lumcurl --help' shows the commands") +
                (isOption ? "; a command's options stand behind it" : ""));
  return Exit::kUsage;
}

// The value of --color before anything is parsed.
std::string ColourAskedFor(const std::vector<std::string>& words) {
  static const std::string kOption = "--color";
  std::string when = "auto";
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (words[i] == kOption && i + 1 < words.size()) {
      when = words[i + 1];
    } else if (words[i].rfind(kOption + "=", 0) == 0) {
      when = words[i].substr(kOption.size() + 1);
    }
  }
  return when;
}

Exit Main(int argc, char** argv) {
  Options options;
  const std::unique_ptr<CLI::App> parser = MakeParser(options);
  const std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
  Console plain(false, false, ColourAskedFor(words));  // until the options are known
  try {
    const std::string problem = OptionProblem(*parser, words);
    if (!problem.empty()) {
      return ReportUsage(plain, *parser, words, problem);
    }
    parser->parse(argc, argv);
    options.command = parser->get_subcommands().front()->get_name();
    if (options.command == "completion") {
      plain.Data(Completion(options.shell, *parser));
      return Exit::kDone;
    }
  } catch (const CLI::CallForHelp&) {
    plain.Data(parser->help());
    return Exit::kDone;
  } catch (const CLI::CallForVersion&) {
    plain.Data(std::string("lumcurl " LUM_VERSION "\nlibLumCurlHttp " LUM_VERSION "\n") +
               curl_version() + "\n");
    return Exit::kDone;
  } catch (const CLI::ExtrasError& error) {
    const std::string text = error.what();
    return ReportUsage(plain, *parser, words, "too many operands" + text.substr(text.rfind(": ")));
  } catch (const CLI::ParseError& error) {
    for (const std::string& word : words) {
      MaskSecrets(word, plain);  // the message may repeat a URL
    }
    return ReportUsage(plain, *parser, words, error.what());
  }

  Console console(options.verbose, options.quiet, options.colour);
  try {
    return Run(options, console);
  } catch (const Failure& failure) {
    console.Error(options.command + ": " + failure.what());
    return failure.Status();
  } catch (const std::bad_alloc&) {
    console.Error(options.command + ": out of memory");
    return Exit::kOther;
  }
}

// A file or a connection that took the number of a missing standard descriptor would get what is
// meant for that one. In its place comes one that fails as the missing one would, but for standard
// error, where there is nobody left to tell.
void FillMissingDescriptors() {
  constexpr std::array<int, 3> kModes = {O_WRONLY, O_RDONLY, O_WRONLY};
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", kModes[static_cast<std::size_t>(fd)]) != fd) {
      std::_Exit(static_cast<int>(Exit::kOther));
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  FillMissingDescriptors();
  HandleInterrupts();
  Console console(false, false);
  try {
    return static_cast<int>(Main(argc, argv));
  } catch (const Failure& failure) {
    console.Error(failure.what());
    return static_cast<int>(failure.Status());
  } catch (const std::exception& error) {
    console.Error(error.what());
    return static_cast<int>(Exit::kOther);
  }
}
