// The command line of the uploads.

#include "OptionGroups.h"

namespace {

constexpr char kSigningOptions[] = "Signature";

constexpr char kReplyNote[] =
    "The server's reply to an upload is written to standard output by the library itself, "
    "whatever its status. ";

// Those, and the settings that uploads alone read.
void AddUploadSettings(CLI::App* command, Options& options) {
  AddServiceSettings(command, options);
  AddValue(command, "--pin-ip", options.pinIp, "ADDR",
           "Connect to this address in place of what the URL's host resolves to")
      ->check(CheckAddress)
      ->group(kRouteOptions);
  AddValue(command, "--limit-rate", options.limitRate, "RATE",
           "Highest speed in bytes per second; 500K and 2M count in steps of 1024")
      ->transform(CLI::Validator(&ToBytesPerSecond, ""))
      ->group(kRouteOptions);
}

// How a signed upload gets its Authorization and Date. Returns the options that ask for it.
std::vector<CLI::Option*> AddSignature(CLI::App* command, Options& options) {
  auto* date = AddValue(command, "--date", options.date, "DATE",
                        "The Date value to send and sign (default with --sign-key-file: now)");
  date->check(CheckLine);
  auto* sign = AddValue(command, "--sign-key-file", options.signKeyFile, "FILE",
                        "Sign the upload with the key in this file: Authorization is \"LUM \" and "
                        "the base64 of the HMAC-SHA1 of method, date and path, one a line");
  auto* ready = AddValue(command, "--authorisation-file", options.authorisationFile, "FILE",
                         "File that holds a ready-made Authorization value; needs --date");
  ready->needs(date)->excludes(sign);
  auto* token = AddValue(command, "--security-token-file", options.securityTokenFile, "FILE",
                         "File that holds the x-zun-security-token value of a signed upload");
  for (auto* option : {date, sign, ready, token}) {
    option->group(kSigningOptions);
  }
  return {date, sign, ready, token};
}

CLI::App* AddUpload(CLI::App& app, Options& options, const char* name, const char* about,
                    const char* operand, const char* operandHelp, const std::string& notes,
                    const char* example) {
  CLI::App* command = AddServiceCommand(app, options, name, kUploads, about, notes, example);
  AddUrl(command, options);
  AddOperand(command, operand, options.path, operandHelp);
  return command;
}

// What the uploads that pack have in the end.
void AddPacking(CLI::App* command, Options& options) {
  command->add_flag("--overwrite", options.overwrite,
                    "Replace, and in the end remove, a file that has the archive's name");
  AddSignature(command, options);
  AddUploadSettings(command, options);
}

}  // namespace

void AddUploadCommands(CLI::App& app, Options& options) {
  auto* log = AddUpload(
      app, options, "upload-log", "PUT a log archive", "FILE", "File to send",
      std::string("Three forms: 'Content-Type: application/zip' alone, your own header lines (-H), "
                  "or a signature without a content type. Only the status 200 counts as done. ") +
          kReplyNote +
          "With -H or --timeout the library does not hand on the status of an answer that is "
          "refused: the exit status is then 1. A signed upload may take 60 seconds. ",
      "  lumcurl upload-log --sign-key-file storage.key \\\n"
      "      http://127.0.0.1:8080/objects/today.zip today.zip");
  auto* headers =
      AddHeader(log, options,
                "A header line to send in place of the content type, or @FILE to read lines from "
                "a file; repeatable");
  AddTimeout(log, options, "Time limit; 0: none (default: 60)");
  for (auto* option : AddSignature(log, options)) {
    option->excludes(headers)->excludes(log->get_option("--timeout"));
  }
  AddUploadSettings(log, options);

  auto* video = AddUpload(
      app, options, "upload-video", "PUT a video file", "FILE", "File to send",
      std::string("Sent as 'Content-Type: video/mp4'. Only the status 200 counts as done; the "
                  "library does not hand on any other, so that the exit status is then 1. ") +
          kReplyNote,
      "  lumcurl upload-video --limit-rate 2M http://127.0.0.1:8080/objects/a.mp4 a.mp4");
  AddTimeout(video, options, "Time limit; 0: none (default: 60)");
  AddUploadSettings(video, options);

  const std::string archiveNote =
      std::string("Only the status 200 counts as done. ") + kReplyNote + "60 seconds. ";
  auto* file = AddUpload(
      app, options, "upload-file", "Pack one file, PUT the archive, remove it", "FILE",
      "File to pack; it stays",
      "The archive is FILE.tar.gz, beside the file; it is removed after the upload, also after "
      "one that failed, but not when you interrupt it. " +
          archiveNote,
      "  lumcurl upload-file http://127.0.0.1:8080/objects/a.tar.gz /var/log/a.log");
  AddPacking(file, options);

  auto* directory = AddUpload(
      app, options, "upload-dir", "Pack a directory, PUT the archive, remove it", "DIR",
      "Directory to pack; it stays",
      "The archive is DIR.tar.gz, beside the directory (DIR/ makes DIR/.tar.gz, inside it); it is "
      "removed after the upload but kept after one that failed, and when you interrupt it. " +
          archiveNote,
      "  lumcurl upload-dir --sign-key-file storage.key \\\n"
      "      http://127.0.0.1:8080/objects/logs.tar.gz /var/log/robot");
  AddPacking(directory, options);

  auto* group = AddServiceCommand(
      app, options, "upload-group", kUploads, "Pack several files, PUT the archive, remove it",
      "The files are stored by their base names, which must differ. The archive is removed after "
      "the upload, also after one that failed. " +
          archiveNote,
      "  lumcurl upload-group http://127.0.0.1:8080/objects/g.tar.gz a.log b.log");
  AddUrl(group, options);
  AddOperand(group, "FILE", options.files, "Files to pack; they stay")->check(CheckLine);
  AddValue(group, "--archive", options.archive, "BASE",
           "Make the archive as BASE.tar.gz (default: in a directory for temporary files)");
  AddPacking(group, options);
}
