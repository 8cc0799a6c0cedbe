// What the commands of the service client share.

#ifndef LUM_LUMCURL_SERVICE_CLIENT_H
#define LUM_LUMCURL_SERVICE_CLIENT_H

#include <string>

#include "Console.h"
#include "Exchange.h"
#include "LumCurlOrvOps.h"
#include "Options.h"

// Hands the settings of the command line to the client. Throws Failure for files that cannot be
// read and pass phrases that cannot be used.
void Configure(LumCurlOrvOps& client, const Options& options, Console& console);

// The request that all these commands begin with. Hides the secrets of the URL.
Request MakeRequest(const Options& options, Console& console, const char* command,
                    const char* method, unsigned int timeLimit);

#endif  // LUM_LUMCURL_SERVICE_CLIENT_H
