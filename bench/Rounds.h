// Candidates measured in turns: A B C A B C ..., a time slice each.

#ifndef LUM_BENCH_ROUNDS_H
#define LUM_BENCH_ROUNDS_H

#include <functional>
#include <string>
#include <vector>

namespace lumbench {

struct Candidate {
  std::string name;
  // One piece of work on thread number `thread`; false when it failed.
  std::function<bool(int thread)> run;
  double bytes = 0;  // where they are not those of the case
};

struct Plan {
  int rounds;
  double seconds;  // of each slice; a piece of work that has begun is finished
  int threads;
};

// Prints, for each candidate, one line of JSON: {"section": SECTION, "case": NAME, "candidate":
// ..., "threads": ..., "bytes": BYTES, "wall": [...], "cpu": [...]} where `wall` is the seconds of
// a slice over the pieces of work done in it, and `cpu` the seconds of processor time of the
// process over the same, a number for each round. A piece of work that fails ends the program.
void Measure(const std::string& section, const std::string& name, double bytes, const Plan& plan,
             const std::vector<Candidate>& candidates);

}  // namespace lumbench

#endif  // LUM_BENCH_ROUNDS_H
