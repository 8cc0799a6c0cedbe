// How long a caller waits before it tries again: exponential backoff with full jitter.

#ifndef LUM_EXAMPLES_BACKOFF_H
#define LUM_EXAMPLES_BACKOFF_H

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <random>

// The wait is drawn evenly from nothing up to a bound, and the bound doubles with each failure in a
// row. Devices that failed at the same moment so come back spread over the whole bound, not all at
// its end. Not for use by two threads at once.
class Backoff {
 public:
  using Wait = std::chrono::milliseconds;

  // `first` is the bound after one failure and `longest` the one that it never exceeds. `seed`
  // differs from device to device: one seed for all would have all of them draw the same waits.
  Backoff(Wait first, Wait longest, std::uint64_t seed)
      : m_first(std::min(first, longest)), m_longest(longest), m_bound(m_first), m_random(seed) {}

  // The wait before the next try, after one more failure.
  Wait Next() {
    std::uniform_int_distribution<Wait::rep> drawn(0, m_bound.count());
    const Wait wait(drawn(m_random));
    // Compared before it doubles, so that no bound overflows.
    m_bound = m_bound > m_longest / 2 ? m_longest : m_bound * 2;
    return wait;
  }

  // After a success.
  void Reset() { m_bound = m_first; }

 private:
  Wait m_first;
  Wait m_longest;
  Wait m_bound;
  std::mt19937_64 m_random;
};

#endif  // LUM_EXAMPLES_BACKOFF_H
