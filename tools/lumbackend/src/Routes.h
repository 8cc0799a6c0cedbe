// What answers requests, family by family.
#ifndef LUM_BACKEND_ROUTES_H
#define LUM_BACKEND_ROUTES_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "Message.h"
#include "RootDir.h"
#include "Store.h"

// --- Reports.cpp. `store` must outlive the answers.

// /echo: the head as it was sent, secrets hidden, and the JSON document of a POST or PUT. `limit`
// is the longest document in bytes.
Task<Reply> Echo(const Call& call, BodySource& body, std::uint64_t limit);

// POST /report: keeps the document, of `limit` bytes at most, and answers {"stored": n}, n being
// the number of reports so far, or an empty 204 when the query says "status=204".
Task<Reply> AddReport(Store& store, const Call& call, BodySource& body, std::uint64_t limit);

// GET /reports: all of them, one compact document a line.
Reply AllReports(const Store& store);

// GET /log-address: {"url", "accessId", "fileName"}.
Reply LogAddress(const Call& call);

// --- Apollo.cpp

// GET /configs/APPID/CLUSTER/NAMESPACE, as the HTTP interface of an Apollo configuration centre has
// it: {"appId", "cluster", "namespaceName", "configurations", "releaseKey"} from the file
// APPID/CLUSTER/NAMESPACE.properties or NAMESPACE.json below `directory`, read anew for every
// request. NAMESPACE is a file's name with or without its extension. A namespace that the cluster
// does not have comes from the cluster "default", which "cluster" then says. A json namespace is
// one property "content" with the text of the file. 304 when "releaseKey" in the query is that of
// the answer, 404 when there is no such namespace.
Reply GetNamespace(const RootDir& directory, const Call& call);

// --- Monitor.cpp: the page and what it asks for. `store` must outlive the answers.

// What answers the paths of the page in Paths.h, all by GET.
std::map<std::string, std::function<Reply(const Call&)>> MonitorAnswers(Store& store);

#endif  // LUM_BACKEND_ROUTES_H
