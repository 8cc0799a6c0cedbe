// Every occasion of every fault, and what each run has to leave.

#include "Trial.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

#include "Excuses.h"
#include "Judge.h"

namespace lumtest {
namespace {

// Libraries keep what they build once: it counts as lost only if it is lost every time. OpenSSL's
// queue of errors has 16 places that fill up.
constexpr int kRepeats = 24;

// A server in a process of its own, beyond the reach of what a fault breaks in this one.
class ServerProcess {
 public:
  ServerProcess() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0 || (m_pid = fork()) < 0) {
      throw std::runtime_error("cannot start a server");
    }
    if (m_pid == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      WireServer server;
      server.SetHandler([](const WireRequest&) { return JsonReply("{}"); });
      const std::uint16_t port = server.Port();
      (void)!write(ends[1], &port, sizeof port);
      while (true) {
        pause();
      }
    }
    close(ends[1]);
    const ssize_t got = read(ends[0], &m_port, sizeof m_port);
    close(ends[0]);
    if (got != static_cast<ssize_t>(sizeof m_port)) {
      throw std::runtime_error("the server did not start");
    }
  }
  ~ServerProcess() {
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
  }
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  std::string Url() const { return "http://127.0.0.1:" + std::to_string(m_port) + "/"; }

 private:
  pid_t m_pid = 0;
  std::uint16_t m_port = 0;
};

class Ordeal {
 public:
  Ordeal(const Trial& trial, Progress& progress, FILE* report)
      : m_trial(trial),
        m_subject(trial.subject),
        m_faults(trial.faults()),
        m_progress(progress),
        m_report(report) {}

  void Run() {
    RecordFaultsIn(&m_progress.record);
    if (m_subject.fresh) {
      const ServerProcess server;
      StrikeAll([&](Fault& fault) { return StrikeInANewProcess(fault, server.Url()); });
      return;
    }
    // The clients clean libcurl up as they go; this share keeps it.
    curl_global_init(CURL_GLOBAL_ALL);
    World world(m_trial.connection, m_trial.scenario);
    world.caller.Initialise();
    m_usual = LearnWhatIsUsual(world);
    world.LeadToPlainServer(!m_subject.needsTls);
    m_usualAfterwards = LearnWhatIsUsual(world);
    world.LeadToPlainServer(false);
    StrikeAll([&](Fault& fault) { return StrikeOnce(world, fault); });
  }

 private:
  // Each fault at each occasion, until `once` finds twice that there is none left: a transfer may
  // take a poll more or less.
  template <typename Once>
  void StrikeAll(Once once) {
    for (; m_progress.fault < m_faults.size(); ++m_progress.fault, m_progress.nth = 1) {
      while (once(*m_faults[m_progress.fault]) || once(*m_faults[m_progress.fault])) {
        ++m_progress.nth;
      }
    }
  }

  Observation Observe(World& world, Fault* fault = nullptr) {
    world.CleanUp();
    if (m_subject.prepare) {
      m_subject.prepare(world);
    }
    ++m_progress.runs;
    return world.Observe(m_subject.run, fault, m_progress.nth);
  }

  // What the operation does without a fault. The first runs fill what libraries keep.
  Observation LearnWhatIsUsual(World& world) {
    Observation usual;
    for (int i = 0; i < 3; ++i) {
      usual = Observe(world);
    }
    const Observation again = Observe(world);
    const bool reaches =
        m_trial.scenario != Scenario::kNone && m_trial.scenario != Scenario::kRefused;
    if (usual.requests.size() != (reaches ? 1 : 0)) {
      throw std::runtime_error(m_subject.name + " sent " + std::to_string(usual.requests.size()) +
                               " requests");
    }
    if (!AreAlike(again, usual) || again.blocks != usual.blocks) {
      throw std::runtime_error(m_subject.name + " does not repeat: " + usual.answer + " and " +
                               again.answer);
    }
    return usual;
  }

  static bool AreAlike(const Observation& one, const Observation& other) {
    return one.answer == other.answer && one.requests == other.requests &&
           one.files == other.files && one.output == other.output && one.log == other.log &&
           one.descriptorLeft == other.descriptorLeft;
  }

  // One run with the fault at the present occasion; false when there is no such occasion.
  bool StrikeOnce(World& world, Fault& fault) {
    const Observation seen = Observe(world, &fault);
    if (!fault.Struck()) {
      return false;
    }
    Verdict verdict = Judge(m_subject, world, fault, m_usual, seen);
    if (verdict.outcome != Outcome::kBad && !verdict.keepsMemory && seen.blocks > m_usual.blocks &&
        Leaks(world, fault)) {
      verdict = {Outcome::kBad,
                 "it lost " + std::to_string(seen.blocks - m_usual.blocks) + " blocks of memory"};
    }
    Count(verdict);
    world.LeadToPlainServer(!m_subject.needsTls);  // a handshake costs ten times the rest
    const Observation after = Observe(world);
    world.LeadToPlainServer(false);
    if (!AreAlike(after, m_usualAfterwards)) {
      Count({Outcome::kBad, "and then the object answered \"" + after.answer + "\", not \"" +
                                m_usualAfterwards.answer + "\""});
    }
    return true;
  }

  bool Leaks(World& world, Fault& fault) {
    for (int i = 0; i < kRepeats; ++i) {
      if (Observe(world, &fault).blocks <= m_usual.blocks || !fault.Struck()) {
        return false;
      }
    }
    return true;
  }

  // The same in a child: what is torn by a fault at start-up stays torn in its process.
  bool StrikeInANewProcess(Fault& fault, const std::string& url) {
    ++m_progress.runs;
    const pid_t child = fork();
    if (child < 0) {
      throw std::runtime_error("cannot fork");
    }
    if (child == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      const bool struck = StrikeAtStart(fault, url);
      (void)std::fflush(m_report);
      _exit(struck ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFEXITED(status)) {
      Count({Outcome::kBad, "signal " + std::to_string(WTERMSIG(status))});
      return true;
    }
    return WEXITSTATUS(status) == 1;
  }

  bool StrikeAtStart(Fault& fault, const std::string& url) {
    World world(Connection::kPlain, m_trial.scenario);
    const Observation seen = Observe(world, &fault);
    m_usual = seen;
    m_usual.answer = "0";
    m_usual.log.clear();
    if (!fault.Struck()) {
      return false;
    }
    Verdict verdict = Judge(m_subject, world, fault, m_usual, seen);
    if (verdict.outcome == Outcome::kSame) {
      int status = 0;
      world.caller.general.Get(url, "", false, status);
      if (status != 200) {
        verdict = {Outcome::kBad, "it succeeded, and then no request came through"};
      }
    }
    Count(verdict);
    return true;
  }

  void Count(const Verdict& verdict) {
    switch (verdict.outcome) {
      case Outcome::kSame:
        ++m_progress.result.same;
        return;
      case Outcome::kFailure:
        ++m_progress.result.failed;
        return;
      case Outcome::kBadAlloc:
        ++m_progress.result.threw;
        return;
      case Outcome::kBad:
        CountBad(m_trial, m_progress, verdict.reason, m_report);
    }
  }

  const Trial& m_trial;
  const Subject& m_subject;
  const Faults m_faults;
  Progress& m_progress;
  FILE* m_report;
  Observation m_usual;
  Observation m_usualAfterwards;
};

}  // namespace

void CountBad(const Trial& trial, Progress& progress, const std::string& reason, FILE* report) {
  if (IsExcused(reason, progress.record)) {
    ++progress.result.excused;
    return;
  }
  ++progress.result.bad;
  (void)std::fprintf(report, "BAD: %s, %s, %s %zu: %s\n%s", trial.subject.name.c_str(),
                     NameOf(trial.scenario), trial.faults()[progress.fault]->Name().c_str(),
                     progress.nth, reason.c_str(), Describe(progress.record).c_str());
  (void)std::fflush(report);
}

void Run(const Trial& trial, Progress& progress, FILE* report) {
  Ordeal(trial, progress, report).Run();
}

}  // namespace lumtest
