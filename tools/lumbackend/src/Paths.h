// Every path with what it takes and answers: for routing, --help and the page.
#ifndef LUM_BACKEND_PATHS_H
#define LUM_BACKEND_PATHS_H

struct Path {
  const char* method;  // GET stands for HEAD, too
  const char* path;    // words in capitals stand for segments, "NAME..." for one or more
  const char* takes;   // "": nothing
  const char* answers;
};

constexpr Path kPaths[] = {
    {"GET", "/", "", "The page that shows what comes in"},
    {"GET", "/echo", "", "The request as JSON: method, path, query, headers, scheme, certificate"},
    {"POST", "/echo", "JSON, plain or gzip", "The same and the document"},
    {"PUT", "/echo", "JSON, plain or gzip", "The same and the document"},
    {"GET", "/files/NAME...", "", "A file of ROOT/files"},
    {"POST", "/token", "A JSON object", "{\"token\", \"expiresIn\"}"},
    {"PUT", "/token", "A JSON object; token", "The same; the old token ends"},
    {"POST", "/report", "JSON, plain or gzip; token",
     "{\"stored\": number}; nothing and status 204 with ?status=204"},
    {"GET", "/reports", "", "All reports, one JSON document a line"},
    {"GET", "/log-address", "?access_id=ID&file_name=NAME; token",
     "{\"url\", \"accessId\", \"fileName\"}"},
    {"PUT", "/objects/NAME...", "Any bytes; a signature where a key is set",
     "{\"stored\", \"bytes\"}"},
    {"GET", "/objects/NAME...", "", "The object"},
    {"GET", "/configs/APPID/CLUSTER/NAMESPACE", "?releaseKey=KEY",
     "An Apollo namespace of ROOT/configs; nothing and status 304 with its own releaseKey"},
    {"GET", "/events", "?after=ID", "The last reports, uploads and refusals"},
    {"GET", "/stream", "?after=ID", "New exchanges, as server-sent events"},
    {"GET", "/exchanges",
     "?before=ID, after, order=oldest, limit; to filter: since, text, kind, status, device, topic",
     "Exchanges that are kept, newest first"},
    {"GET", "/exchanges/ID", "", "One exchange whole"},
    {"GET", "/exchanges/ID/body", "", "The body of its request"},
    {"GET", "/totals", "", "How many exchanges of each kind are kept; devices and topics"},
    {"GET", "/chart", "?minutes=N", "Reports and refusals of the last minutes"},
    {"GET", "/paths", "", "This list"},
};

#endif  // LUM_BACKEND_PATHS_H
