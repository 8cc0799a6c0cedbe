// Keeps the library from writing log lines.

#include <LumCurlHttp.h>
#include <LumLogger.h>

int main() {
  // kError, kWarning and kInfo let the lines up to that level through.
  LumLogger::GetInstance().SetLevel(LumLogger::kSilent);

  LumCurlHttp client;
  int status = 0;
  client.Get("", "", false, status);  // refused, which would be a line
}
