// The commands of lumcurl. Each runs once and returns the process's exit status; what is wrong with
// the command's input is thrown as Failure. Where a function has several, Options::command tells
// them apart.

#ifndef LUM_LUMCURL_COMMANDS_H
#define LUM_LUMCURL_COMMANDS_H

#include "Console.h"
#include "Failure.h"
#include "Options.h"

// HttpCommands.cpp, over LumCurlHttp
Exit RunGetOrPost(const Options& options, Console& console);
Exit RunDownload(const Options& options, Console& console);

// ServiceCommands.cpp, over LumCurlOrvOps
Exit RunToken(const Options& options, Console& console);
Exit RunReport(const Options& options, Console& console);
Exit RunLogAddress(const Options& options, Console& console);
Exit RunServiceGetOrPost(const Options& options, Console& console);

// UploadCommands.cpp, over LumCurlOrvOps
Exit RunUpload(const Options& options, Console& console);
Exit RunUploadFile(const Options& options, Console& console);
Exit RunUploadDirectory(const Options& options, Console& console);
Exit RunUploadGroup(const Options& options, Console& console);

// ApolloCommand.cpp, over LumApollo
Exit RunApollo(const Options& options, Console& console);

#endif  // LUM_LUMCURL_COMMANDS_H
