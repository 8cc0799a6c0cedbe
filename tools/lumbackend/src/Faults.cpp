// The sequence of faults.
#include "Faults.h"

bool Faults::NextFails() {
  if (m_rate <= 0) {
    return false;
  }
  const std::lock_guard<std::mutex> lock(m_mutex);
  // 53 bits fill a double from 0 up to, but without, 1. The distributions of <random> may differ
  // from one standard library to the next, the engine may not.
  const double draw = static_cast<double>(m_engine() >> 11) * 0x1p-53;
  return draw < m_rate;
}
