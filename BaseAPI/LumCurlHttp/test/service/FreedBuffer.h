// Tells when the product frees one buffer.

#ifndef LUM_TEST_SERVICE_FREEDBUFFER_H
#define LUM_TEST_SERVICE_FREEDBUFFER_H

namespace lumtest {

// Makes the free() of this buffer an event, "free the buffer", once.
void WatchFree(const void* buffer);

}  // namespace lumtest

#endif  // LUM_TEST_SERVICE_FREEDBUFFER_H
