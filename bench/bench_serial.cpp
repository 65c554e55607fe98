// Serial lines: round trips per second against the simulated instrument on a
// pseudo-terminal (write a command, read the answer line), through C_SERIAL
// and through raw read/write on the same kind of line with the same bytes on
// the wire: the command, "17", the instrument's "\r\n=<command>\r\n", "19".
// The raw exchange is timed twice: reading one byte per call, as C_SERIAL
// does, and reading whatever has arrived per call.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <qorc/qorc.h>
#include <termios.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "support/instrument.h"

namespace {

#ifdef QORC_INSTRUMENT_SIM
const char* const kSimulator = QORC_INSTRUMENT_SIM;
#else
const char* const kSimulator = nullptr;
#endif

// The command of round trip i and the answer the instrument gives.
std::string Command(long i) { return "MEAS " + std::to_string(i % 1000); }

bool StartServing(benchmark::State& state, std::unique_ptr<Instrument>* instrument) {
  if (kSimulator == nullptr) {
    state.SkipWithError("built without the simulated instrument (tests disabled)");
    return false;
  }
  *instrument = std::make_unique<Instrument>(kSimulator, std::vector<std::string>{"serve=0"});
  if ((*instrument)->port().empty()) {
    state.SkipWithError("the simulated instrument did not start");
    return false;
  }
  return true;
}

void ReportRate(benchmark::State& state) {
  state.counters["round_trips"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_LibraryRoundTrip(benchmark::State& state) {
  std::unique_ptr<Instrument> instrument;
  if (!StartServing(state, &instrument)) return;
  C_SERIAL serial(C_STRING(instrument->port().c_str()), C_SERIAL::BAUD_115200, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1);
  C_STRING line;
  long i = 0;
  for (auto _ : state) {
    const std::string command = Command(i++);
    serial.Write(C_STRING((command + "\n").c_str()));
    serial.Read(&line);
    if (C_ERROR::Is() || !(line == C_STRING(("=" + command).c_str()))) {
      state.SkipWithError("wrong answer");
      break;
    }
  }
  ReportRate(state);
}

// The raw side: a raw line at the same settings, no library.
class RawLine {
 public:
  explicit RawLine(const std::string& path) : fd_(open(path.c_str(), O_RDWR | O_NOCTTY)) {
    struct termios t;
    if (fd_ < 0 || tcgetattr(fd_, &t) != 0) return;
    cfmakeraw(&t);
    cfsetspeed(&t, B115200);
    t.c_iflag |= IXON | IXOFF;
    t.c_cc[VMIN] = 1;
    t.c_cc[VTIME] = 0;
    tcsetattr(fd_, TCSANOW, &t);
  }
  ~RawLine() {
    if (fd_ >= 0) close(fd_);
  }
  bool Send(const std::string& bytes) { return write(fd_, bytes.data(), bytes.size()) == ssize_t(bytes.size()); }
  // The next line feed-ended line, carriage returns dropped, reading `chunk` bytes per call.
  bool ReadLine(std::size_t chunk, std::string* line) {
    line->clear();
    for (;;) {
      if (pos_ == end_) {
        const ssize_t got = read(fd_, buffer_, chunk);
        if (got <= 0) return false;
        pos_ = 0;
        end_ = static_cast<std::size_t>(got);
      }
      const char c = buffer_[pos_++];
      if (c == '\n') return true;
      if (c != '\r') *line += c;
    }
  }
  void Purge() {
    tcflush(fd_, TCIFLUSH);
    pos_ = end_ = 0;
  }

 private:
  int fd_;
  char buffer_[256];
  std::size_t pos_ = 0;
  std::size_t end_ = 0;
};

void BM_RawRoundTrip(benchmark::State& state) {
  std::unique_ptr<Instrument> instrument;
  if (!StartServing(state, &instrument)) return;
  const std::size_t chunk = static_cast<std::size_t>(state.range(0));
  RawLine line(instrument->port());
  line.Send("19");
  std::string skipped;
  std::string answer;
  long i = 0;
  for (auto _ : state) {
    const std::string command = Command(i++);
    if (!line.Send(command + "\n") || !line.Send("17") || !line.ReadLine(chunk, &skipped) ||
        !line.ReadLine(chunk, &answer) || !line.Send("19") || answer != "=" + command) {
      state.SkipWithError("wrong answer");
      break;
    }
    line.Purge();
  }
  ReportRate(state);
}

}  // namespace

BENCHMARK(BM_LibraryRoundTrip)->Unit(benchmark::kMicrosecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_RawRoundTrip)->Arg(1)->Arg(256)->Unit(benchmark::kMicrosecond)->MinTime(2.0)->UseRealTime();

int main(int argc, char** argv) {
  Copen();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  Cclose();
  return 0;
}
