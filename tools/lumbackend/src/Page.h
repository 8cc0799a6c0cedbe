// The web page at /, embedded at build time.
#ifndef LUM_BACKEND_PAGE_H
#define LUM_BACKEND_PAGE_H

#include "Message.h"

// The page with headers that let it load and run nothing but itself.
Reply PageReply();

#endif  // LUM_BACKEND_PAGE_H
