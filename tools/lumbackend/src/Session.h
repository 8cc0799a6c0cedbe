// One connection's HTTP.
#ifndef LUM_BACKEND_SESSION_H
#define LUM_BACKEND_SESSION_H

#include <httplib.h>

#include <string>

#include "Backend.h"
#include "Connection.h"

// Reads requests from a connection, has the back end answer them, writes the answers and the access
// log. cpp-httplib reads heads, bodies and chunks and writes answers. Its routing is not used:
// every request takes the one route to Answer(), with the head as it was sent, because cpp-httplib
// decodes header values and unpacks bodies on its own. One thread per session.
class Session : private httplib::Server {
 public:
  // Both must outlive the session.
  Session(Backend& backend, Connection& connection);

  // Serves until the connection ends.
  void Run();

 private:
  bool Serve();
  void Prepare(httplib::Request& request);
  void Answer(httplib::Response& response, const httplib::ContentReader* reader);
  Reply OwnRefusal(int status) const;
  void Send(Reply reply, httplib::Response& response);
  void BeforeAnswer(httplib::Response& response);
  bool Closing() const;
  void Log(std::uint64_t bytesOut);

  Backend& m_backend;
  Connection& m_connection;

  // Of the request being served:
  bool m_headRead = false;  // m_call holds all of the head
  Call m_call;
  std::string m_problem;  // what is wrong with the head, or ""
  Note m_note;
  int m_status = 0;          // of the answer; 0: there was none
  std::uint64_t m_body = 0;  // bytes of the body so far
  bool m_bodyLeft = false;   // the body has not been read to its end
};

#endif  // LUM_BACKEND_SESSION_H
