// lumcurl: options, signals, and the command in between.

#include <CLI/CLI.hpp>
#include <array>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "Commands.h"
#include "Completion.h"
#include "Input.h"
#include "Interrupt.h"
#include "LumCurlHttp.h"
#include "LumLogger.h"

namespace {

struct Command {
  const char* name;
  Exit (*run)(const Options&, Console&);
};

constexpr std::array<Command, 15> kCommands = {{{"get", &RunGet},
                                                {"post", &RunPost},
                                                {"download", &RunDownload},
                                                {"token", &RunToken},
                                                {"refresh-token", &RunRefreshToken},
                                                {"report", &RunReport},
                                                {"log-address", &RunLogAddress},
                                                {"service-get", &RunServiceGet},
                                                {"service-post", &RunServicePost},
                                                {"upload-log", &RunUploadLog},
                                                {"upload-video", &RunUploadVideo},
                                                {"upload-file", &RunUploadFile},
                                                {"upload-dir", &RunUploadDirectory},
                                                {"upload-group", &RunUploadGroup},
                                                {"apollo", &RunApollo}}};

Exit Run(const std::string& name, const Options& options, Console& console) {
  for (const Command& command : kCommands) {
    if (name != command.name) {
      continue;
    }
    LumLogger::GetInstance().SetLevel(LumLogger::kSilent);  // the command says what went wrong
    if (LumCurlHttp::CurlGlobalInit() != 0) {
      throw Failure(Exit::kOther, "libcurl cannot be initialised");
    }
    return command.run(options, console);
  }
  throw Failure(Exit::kOther, "no command '" + name + "'");
}

// `first` is the command line's first word.
Exit ReportUsage(Console& console, const CLI::App& parser, const std::string& first,
                 const std::string& error) {
  const auto chosen = parser.get_subcommands();
  if (!chosen.empty()) {
    const std::string name = chosen.front()->get_name();
    console.Error(name + ": " + error);
    console.Error("'lumcurl " + name + " --help' shows what can be given");
    return Exit::kUsage;
  }
  console.Error(first.empty() || first[0] == '-' ? error : "'" + first + "' is no command");
  console.Error("'lumcurl --help' shows the commands");
  return Exit::kUsage;
}

Exit Main(int argc, char** argv) {
  Options options;
  const std::unique_ptr<CLI::App> parser = MakeParser(options);
  Console plain(false, false);  // until the options are known
  std::string name;
  try {
    parser->parse(argc, argv);
    name = parser->get_subcommands().front()->get_name();
    if (name == "completion") {
      plain.Data(BashCompletion(*parser));
      return Exit::kDone;
    }
  } catch (const CLI::CallForHelp&) {
    plain.Data(parser->help());
    return Exit::kDone;
  } catch (const CLI::CallForVersion& version) {
    plain.Data(std::string(version.what()) + "\n");
    return Exit::kDone;
  } catch (const CLI::ParseError& error) {
    for (int i = 1; i < argc; ++i) {
      MaskSecrets(std::string(argv[i]), plain);  // the message may repeat a URL
    }
    return ReportUsage(plain, *parser, argc > 1 ? argv[1] : "", error.what());
  }

  Console console(options.verbose, options.quiet);
  try {
    return Run(name, options, console);
  } catch (const Failure& failure) {
    console.Error(name + ": " + failure.what());
    return failure.Status();
  } catch (const std::bad_alloc&) {
    console.Error(name + ": out of memory");
    return Exit::kOther;
  }
}

}  // namespace

int main(int argc, char** argv) {
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
