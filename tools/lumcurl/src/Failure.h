// The exit statuses of lumcurl, and the exception that ends a command with one of them.

#ifndef LUM_LUMCURL_FAILURE_H
#define LUM_LUMCURL_FAILURE_H

#include <stdexcept>
#include <string>

enum class Exit : int {
  kDone = 0,
  kOther = 1,        // anything that has no number of its own
  kUsage = 2,        // the command line, or what it asks to send
  kClientError = 4,  // the server answered with a 4xx status
  kServerError = 5,  // the server answered with a 5xx status
  kNetwork = 6,      // no connection, or one that broke
  kTimeout = 7,
  kTls = 8,
  kFile = 9,  // a local file, standard input and output included
};

// Ends a command. The text names the thing and says what to do next; main prints it.
class Failure : public std::runtime_error {
 public:
  Failure(Exit status, const std::string& text) : std::runtime_error(text), m_status(status) {}
  Exit Status() const { return m_status; }

 private:
  Exit m_status;
};

#endif  // LUM_LUMCURL_FAILURE_H
