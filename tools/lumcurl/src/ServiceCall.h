// One call of the service client.

#ifndef LUM_LUMCURL_SERVICE_CALL_H
#define LUM_LUMCURL_SERVICE_CALL_H

#include "Exchange.h"
#include "LumCurlOrvOps.h"

// A client with the settings of the command line, and what stands around its one request.
struct ServiceCall {
  // Throws Failure for files that cannot be read and pass phrases that cannot be used.
  ServiceCall(const Options& options, Console& console, Request request);

  Exchange exchange;  // first: the library logs what it makes of the settings
  LumCurlOrvOps client;
};

#endif  // LUM_LUMCURL_SERVICE_CALL_H
