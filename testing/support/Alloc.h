// Counts what operator new gives out, and makes it fail on cue.

#ifndef LUM_TESTING_SUPPORT_ALLOC_H
#define LUM_TESTING_SUPPORT_ALLOC_H

#include <cstddef>

namespace lumtest {

// A program that links LumTestAlloc has its operator new and delete replaced, in all their forms
// and for the shared libraries it uses too; they stand on malloc and free, so that sanitizers still
// see every allocation. malloc itself is not touched. Valgrind's memcheck puts its own operators in
// this place unless it is run with --soname-synonyms=somalloc=nouserintercepts.

// Lets allocation number `count` from now on fail on this thread: 1 is the very next. It throws
// std::bad_alloc (or gives null, where the form says so); those after it succeed again. 0 calls it
// off. Other threads are not concerned.
void FailNextNew(std::size_t count);

// Whether the failure has been met; false as long as it is still to come, or was never asked for.
bool NewHasFailed();

// The allocations that this thread has asked for since it began, the failed one included.
std::size_t NewsOfThisThread();

// The allocations of the whole process that have not been given back.
std::size_t LiveNews();

// FailNextNew for the length of a scope.
class FailNewInScope {
 public:
  explicit FailNewInScope(std::size_t count) { FailNextNew(count); }
  ~FailNewInScope() { FailNextNew(0); }
  FailNewInScope(const FailNewInScope&) = delete;
  FailNewInScope& operator=(const FailNewInScope&) = delete;
};

}  // namespace lumtest

#endif  // LUM_TESTING_SUPPORT_ALLOC_H
