#include "ServiceCall.h"

#include <utility>

#include "Input.h"

ServiceCall::ServiceCall(const Options& options, Console& console, Request request)
    : exchange(options, console, std::move(request)) {
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
