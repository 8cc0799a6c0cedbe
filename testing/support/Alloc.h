// Counts what is allocated, and makes one allocation fail on cue: the one failing allocator.

#ifndef LUM_TESTING_SUPPORT_ALLOC_H
#define LUM_TESTING_SUPPORT_ALLOC_H

#include <cstddef>

namespace lumtest {

// A program that links LumTestAlloc has operator new and the malloc family replaced, in all their
// forms and for the shared libraries it uses too. Beneath stands the sanitizer's allocator where
// there is one, glibc's otherwise. Valgrind's memcheck puts its own functions in this place unless
// it is run with --soname-synonyms=somalloc=nouserintercepts.

// Lets one allocation fail on this thread, number `count` from now on: 1 is the very next. It gives
// null or throws std::bad_alloc, as its form says; those after it succeed again. 0 calls it off.
// Other threads are not concerned. FailNextNew counts those of operator new alone, FailNextMalloc
// those of any library by any function, strdup and operator new among them.
void FailNextNew(std::size_t count);
void FailNextMalloc(std::size_t count);

// While paused, this thread's allocations neither fail nor count towards the one that does.
void PauseFailing(bool paused);

// Whether the failure has been met; false as long as it is still to come, or was never asked for.
bool AllocationHasFailed();

// Called at the failure, by the thread that meets it; null: nothing is. It must not allocate.
void OnAllocationFailure(void (*hook)());

// How often this thread has asked operator new since it began, the failed time included.
std::size_t NewsOfThisThread();

// What operator new has given to the whole process and has not been given back.
std::size_t LiveNews();

// The blocks that this thread has allocated in any way less those that it has freed.
long LiveBlocksOfThisThread();

}  // namespace lumtest

#endif  // LUM_TESTING_SUPPORT_ALLOC_H
