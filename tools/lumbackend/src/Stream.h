// New exchanges for the page at /, as they come.
#ifndef LUM_BACKEND_STREAM_H
#define LUM_BACKEND_STREAM_H

#include "History.h"
#include "Message.h"
#include "Store.h"

// GET /stream: server-sent events without an end. Each tells of the newest exchanges, of how many
// there was no room for, and the totals. A reader that comes back says in Last-Event-ID, or else in
// "after" of the query, what it has seen. Both objects must outlive the answer.
Reply StreamReply(const Call& call, const Store& store, History& history);

#endif  // LUM_BACKEND_STREAM_H
