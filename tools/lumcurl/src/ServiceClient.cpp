// What the commands of the service client share.

#include "ServiceClient.h"

#include "Input.h"

void Configure(LumCurlOrvOps& client, const Options& options, Console& console) {
  if (!options.cert.empty()) {
    SetCertificate(client, options, console);
  }
  if (!options.interfaceName.empty()) {
    client.SetBindInterface(options.interfaceName);
  }
  if (!options.mac.empty()) {
    client.SetBindMac(options.mac);
  }
  if (!options.pinIp.empty()) {
    client.SetDomainIp(options.pinIp);
  }
  if (options.limitRate > 0) {
    client.SetLimitSpeed(options.limitRate);
  }
}

Request MakeRequest(const Options& options, Console& console, const char* command,
                    const char* method, unsigned int timeLimit) {
  MaskSecrets(options.url, console);
  Request request;
  request.command = command;
  request.method = method;
  request.url = options.url;
  request.timeLimit = timeLimit;
  request.needsLogAtInfo = !options.mac.empty();
  return request;
}
