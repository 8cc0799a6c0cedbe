// A test program's own operator new, which can be told to fail.

#ifndef LUM_FAILING_ALLOCATION_H
#define LUM_FAILING_ALLOCATION_H

// From now on `count` more allocations of this thread succeed and all later ones throw
// std::bad_alloc. A negative count ends that.
void FailAllocationsAfter(int count);

#endif  // LUM_FAILING_ALLOCATION_H
