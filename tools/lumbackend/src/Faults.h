// Failing on purpose.
#ifndef LUM_BACKEND_FAULTS_H
#define LUM_BACKEND_FAULTS_H

#include <cstdint>
#include <mutex>
#include <random>

// Says which requests fail: a sequence that depends on rate and seed alone, one step a request.
// Safe for several threads at once.
class Faults {
 public:
  // `rate` from 0, nothing fails, to 1, everything does.
  Faults(double rate, std::uint64_t seed) : m_rate(rate), m_engine(seed) {}

  bool NextFails() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    // 53 bits fill a double from 0 up to, but without, 1. The distributions of <random> may differ
    // from one standard library to the next, the engine may not.
    return static_cast<double>(m_engine() >> 11) * 0x1p-53 < m_rate;
  }

 private:
  const double m_rate;
  std::mutex m_mutex;
  std::mt19937_64 m_engine;  // guarded by m_mutex
};

#endif  // LUM_BACKEND_FAULTS_H
