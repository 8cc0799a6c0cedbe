// Where a fault struck.

#include "Fault.h"

#include <dlfcn.h>
#include <elf.h>
#include <execinfo.h>
#include <link.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>

namespace lumtest {
namespace {

FaultRecord* g_record = nullptr;

void Record(FaultPlace& place) {
  place.depth = backtrace(place.frames, FaultPlace::kMostFrames);
}

void RecordExit() {
  Record(g_record->end);
}

void RecordSignal(int signal) {
  Record(g_record->end);
  (void)std::signal(signal, SIG_DFL);
  (void)std::raise(signal);
}

// A return address behind the end of the nearest exported function belongs to one that is not
// exported.
bool Covers(const Dl_info& info, const ElfW(Sym) * symbol, const void* address) {
  return info.dli_sname != nullptr && symbol != nullptr &&
         reinterpret_cast<std::uintptr_t>(address) <=
             reinterpret_cast<std::uintptr_t>(info.dli_saddr) + symbol->st_size;
}

std::string Line(const char* what, const FaultPlace& place) {
  std::string line;
  for (const Frame& frame : Describe(place)) {
    if (frame.library.rfind("lib", 0) == 0) {
      line += (line.empty() ? "" : " < ") + frame.library + ":" +
              (frame.function.empty() ? "?" : frame.function);
    }
  }
  return line.empty() ? "" : std::string("    ") + what + " " + line + "\n";
}

}  // namespace

void RecordFaultsIn(FaultRecord* record) {
  g_record = record;
  Record(record->end);  // loads the unwinder now, which allocates
  (void)std::atexit(&RecordExit);
  for (const int signal : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV}) {
    (void)std::signal(signal, &RecordSignal);
  }
}

void RecordFault() {
  if (g_record != nullptr) {
    Record(g_record->fault);
    g_record->end.depth = 0;
  }
}

std::vector<Frame> Describe(const FaultPlace& place) {
  std::vector<Frame> frames;
  for (int i = 0; i < place.depth; ++i) {
    Dl_info info = {};
    void* symbol = nullptr;
    Frame frame;
    if (dladdr1(place.frames[i], &info, &symbol, RTLD_DL_SYMENT) != 0) {
      const std::string file = info.dli_fname;
      frame.library = file.substr(file.rfind('/') + 1);
      if (Covers(info, static_cast<const ElfW(Sym)*>(symbol), place.frames[i])) {
        frame.function = info.dli_sname;
      }
    }
    frames.push_back(frame);
  }
  return frames;
}

std::string Describe(const FaultRecord& record) {
  return Line("struck at", record.fault) + Line("ended at", record.end);
}

}  // namespace lumtest
